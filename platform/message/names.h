// How messages are named in Python. The plugin and the runtime agree on it here.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

namespace vu {

inline std::string with_underscores(std::string name) {
  for (char& c : name) {
    if (c == '.') c = '_';
  }
  return name;
}

// The package, joined with "_": "acme_net" for acme.net.
inline std::string package_name(const google::protobuf::Descriptor& message) {
  return with_underscores(message.file()->package());
}

// The message's name within its package: "Port.Stats" for a nested message.
inline std::string nested_name(const google::protobuf::Descriptor& message) {
  const std::string& package = message.file()->package();
  return package.empty() ? message.full_name() : message.full_name().substr(package.size() + 1);
}

// The same joined with "_": "Port_Stats".
inline std::string short_name(const google::protobuf::Descriptor& message) {
  return with_underscores(nested_name(message));
}

// Whether classes of messages have an attribute of this name that is no field: what the store's
// binding reads from every wrapper, what binds a class to its type, and what Python calls.
inline bool is_attribute_of_all(const std::string& name) {
  if (name == "package_name" || name == "short_name" || name == "get_ptr") return true;
  if (name == "DESCRIPTOR") return true;
  return name.size() > 4 && name.compare(0, 2, "__") == 0 &&
         name.compare(name.size() - 2, 2, "__") == 0;
}

}  // namespace vu
