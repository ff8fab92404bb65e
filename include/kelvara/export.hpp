#pragma once

/// Marks what libkelvara.so exports; everything else is hidden.
#define KELVARA_EXPORT __attribute__((visibility("default")))
/// Hides a class that stands inside an exported one.
#define KELVARA_HIDDEN __attribute__((visibility("hidden")))
