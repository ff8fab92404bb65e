#include "description/yaml_file.hpp"

#include <yaml-cpp/yaml.h>

#include "description/number.hpp"

namespace kelvara::description {

YAML::Node load_yaml(const std::string& path, const std::string& subject) {
  try {
    return YAML::LoadFile(path);
  } catch (const YAML::BadFile& error) {
    throw UnreadableFile("Failed to open " + subject + " config at " + path + ": " + error.what());
  } catch (const YAML::ParserException& error) {
    throw UnreadableFile("Failed to parse " + subject + " config at " + path + ": " + error.what());
  }
}

YAML::Node child(const YAML::Node& node, const char* key) {
  return node.IsDefined() && node.IsMap() ? node[key] : YAML::Node(YAML::NodeType::Undefined);
}

std::optional<double> as_number(const YAML::Node& node) {
  return node.IsScalar() ? parse_number(node.Scalar(), NonFinite::kYaml) : std::nullopt;
}

void read_sequence(const YAML::Node& node, const FieldMessages& messages, double* values,
                   std::size_t count) {
  if (!node.IsDefined() || !node.IsSequence() || node.size() != count) {
    throw std::runtime_error(messages.field + "must be a sequence of " + std::to_string(count) +
                             " numbers");
  }
  for (std::size_t i = 0; i < count; ++i) {
    const YAML::Node entry = node[i];
    const std::optional<double> value = as_number(entry);
    if (!value) {
      throw std::runtime_error(messages.field +
                               "contains a non-numeric value: " + messages.describe(entry));
    }
    values[i] = *value;
  }
}

}  // namespace kelvara::description
