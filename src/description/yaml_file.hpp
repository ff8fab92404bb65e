#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>

namespace YAML {
class Node;
}

namespace kelvara::description {

/// The YAML file cannot be opened or parsed.
class UnreadableFile : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Loads a YAML file.
/// @param subject What the message calls the file: "Failed to open SUBJECT config at PATH: ...".
/// @throws UnreadableFile when the file cannot be opened or parsed.
YAML::Node load_yaml(const std::string& path, const std::string& subject);

/// The child of a map; an undefined node when there is none, or `node` is not a map.
YAML::Node child(const YAML::Node& node, const char* key);

/// The number that a scalar holds.
std::optional<double> as_number(const YAML::Node& node);

/// Names a field, and describes what is wrong with one of its entries.
struct FieldMessages {
  std::string field;  // "Invalid ... config at PATH: field 'NAME' "
  std::string (*describe)(const YAML::Node& entry);
};

/// Reads a sequence of `count` numbers into `values`.
/// @throws std::runtime_error FIELD + "must be a sequence of COUNT numbers", or
///         FIELD + "contains a non-numeric value: " + the entry's description.
void read_sequence(const YAML::Node& node, const FieldMessages& messages, double* values,
                   std::size_t count);

template <std::size_t kCount>
std::array<double, kCount> read_array(const YAML::Node& node, const FieldMessages& messages) {
  std::array<double, kCount> values{};
  read_sequence(node, messages, values.data(), values.size());
  return values;
}

}  // namespace kelvara::description
