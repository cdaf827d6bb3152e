#include "python_names.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace vu {

namespace pb = google::protobuf;

namespace {

const std::set<std::string>& keywords() {
  static const std::set<std::string> words = {
      "False", "None",     "True",  "and",    "as",   "assert", "async",  "await",    "break",
      "class", "continue", "def",   "del",    "elif", "else",   "except", "finally",  "for",
      "from",  "global",   "if",    "import", "in",   "is",     "lambda", "nonlocal", "not",
      "or",    "pass",     "raise", "return", "try",  "while",  "with",   "yield"};
  return words;
}

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    std::string line = text.substr(start, end - start);
    line.erase(line.find_last_not_of(" \t\r") + 1);
    if (!line.empty() && line.front() == ' ') line.erase(0, 1);
    lines.push_back(std::move(line));
    start = end + 1;
  }
  while (!lines.empty() && lines.back().empty()) lines.pop_back();
  while (!lines.empty() && lines.front().empty()) lines.erase(lines.begin());
  return lines;
}

}  // namespace

std::string python_name(const std::string& name) {
  return keywords().count(name) != 0 ? name + "_" : name;
}

std::string enumerator_name(const std::string& name) {
  if (name == "mro") return "mro_";
  const bool special = name.front() == '_' && name.back() == '_';
  if (special || name.compare(0, 2, "__") == 0) return "value" + name;
  return python_name(name);
}

std::string field_number_name(std::string name) {
  for (char& c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return name + "_FIELD_NUMBER";
}

bool is_plain_name(const std::string& name) {
  return keywords().count(name) == 0 && name.compare(0, 2, "__") != 0;
}

bool is_method_name(const std::string& name) {
  static const std::set<std::string> names = {"ByteSize",
                                              "Clear",
                                              "ClearField",
                                              "CopyFrom",
                                              "FromJson",
                                              "FromString",
                                              "HasField",
                                              "IsInitialized",
                                              "ListFields",
                                              "MergeFrom",
                                              "MergeFromString",
                                              "ParseFromString",
                                              "SerializeToString",
                                              "SetInParent",
                                              "ToJson",
                                              "WhichOneof",
                                              "SerializePartialToString"};
  return names.count(name) != 0;
}

std::string module_path(const pb::FileDescriptor& file) {
  std::string path = file.name();
  if (ends_with(path, ".proto")) path.erase(path.size() - 6);
  std::replace(path.begin(), path.end(), '-', '_');
  return path + "_vu";
}

std::string module_name(const pb::FileDescriptor& file) {
  std::string name = module_path(file);
  std::replace(name.begin(), name.end(), '/', '.');
  return name;
}

bool is_bundled(const pb::FileDescriptor& file) {
  if (file.name() == "vu/options.proto") return true;
  // The plugin is linked with the compiler's own messages too; the runtime is not.
  return file.name() != "google/protobuf/compiler/plugin.proto" &&
         pb::DescriptorPool::generated_pool()->FindFileByName(file.name()) != nullptr;
}

bool is_well_known(const pb::FileDescriptor& file) {
  const auto names = {"duration", "empty", "field_mask", "struct", "timestamp", "wrappers"};
  return std::any_of(names.begin(), names.end(), [&](const char* name) {
    return file.name() == std::string("google/protobuf/") + name + ".proto";
  });
}

std::string class_path(const pb::Descriptor& message, const pb::FileDescriptor& from) {
  const bool bundled = is_bundled(*message.file()) && message.file() != &from;
  if (bundled) return is_well_known(*message.file()) ? "vu_well_known." + message.name() : "";
  std::string path = python_name(message.name());
  for (const pb::Descriptor* outer = message.containing_type(); outer != nullptr;
       outer = outer->containing_type()) {
    path.insert(0, python_name(outer->name()) + ".");
  }
  return message.file() == &from ? path : module_name(*message.file()) + "." + path;
}

template <typename Descriptor>
std::vector<std::string> comment_of(const Descriptor& descriptor) {
  pb::SourceLocation location;
  if (!descriptor.GetSourceLocation(&location)) return {};
  std::vector<std::string> lines = lines_of(location.leading_comments);
  return lines.empty() ? lines_of(location.trailing_comments) : lines;
}

template std::vector<std::string> comment_of(const pb::Descriptor&);
template std::vector<std::string> comment_of(const pb::EnumDescriptor&);
template std::vector<std::string> comment_of(const pb::FieldDescriptor&);

std::string docstring(const std::vector<std::string>& lines, const std::string& margin) {
  std::string text;
  for (const std::string& line : lines) {
    if (!text.empty()) text += line.empty() ? "\n" : "\n" + margin;
    for (const char c : line) {
      if (c == '\\' || c == '"') text += '\\';
      text += c;
    }
  }
  if (lines.size() > 1) text += "\n" + margin;
  return "\"\"\"" + text + "\"\"\"";
}

}  // namespace vu
