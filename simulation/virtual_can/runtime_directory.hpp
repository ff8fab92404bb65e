#pragma once

#include <string>

/// The directory that holds a user's virtual interfaces. Only that user may write to it: another
/// one could otherwise prepare an interface of his own, and receive and send its frames.
namespace kelvara::simulation {

/// KELVARA_VIRTUAL_CAN_DIR; otherwise a directory of the user in XDG_RUNTIME_DIR or, unless that is
/// a private directory of the user, in /tmp.
std::string runtime_directory();

/// Whether it is a directory, not a symbolic link to one, that belongs to the user and that nobody
/// else may write to.
bool is_private_directory(const std::string& path);

/// Creates the runtime directory if it is missing. Returns its path.
/// @throws std::runtime_error with the reason when it cannot be created or is not private.
std::string prepare_runtime_directory();

/// A path by which LD_PRELOAD can name a library: the library's own, or, when that contains a space
/// or a colon, which separate entries there, a link to it in a private directory.
/// @throws std::runtime_error when the link cannot be created.
std::string preload_path(const std::string& library);

}  // namespace kelvara::simulation
