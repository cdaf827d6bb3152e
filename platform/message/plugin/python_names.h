// How things of a .proto file are called in the Python made from it.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

namespace vu {

// `name`, or `name_` where Python has taken the word.
std::string python_name(const std::string& name);

// The same for an enum value, for which the enum module has taken some words more.
std::string enumerator_name(const std::string& name);

// "HITS_FIELD_NUMBER" for the field `hits`.
std::string field_number_name(std::string name);

// Whether `name` can be written as it is in the body of a class.
bool is_plain_name(const std::string& name);

// Whether vu_message.Message has a method of that name, which a field then hides.
bool is_method_name(const std::string& name);

// "a.b.telemetry_vu" for a/b/telemetry.proto, and "a/b/telemetry_vu".
std::string module_name(const google::protobuf::FileDescriptor& file);
std::string module_path(const google::protobuf::FileDescriptor& file);

// Whether the file's messages come with the runtime, so that no module is made for it.
bool is_bundled(const google::protobuf::FileDescriptor& file);

// Whether the module vu_well_known has the classes of such a file.
bool is_well_known(const google::protobuf::FileDescriptor& file);

// The class of a message or enum, as seen from module `from`: "Port.Stats",
// "a.other_vu.Port", "vu_well_known.Timestamp"; for other bundled types nothing, as there is no
// module.
std::string class_path(const google::protobuf::Descriptor& message,
                       const google::protobuf::FileDescriptor& from);

// The comment that stands before an element, or else after it; lines without the margin.
template <typename Descriptor>
std::vector<std::string> comment_of(const Descriptor& descriptor);

// A docstring, quotes and all, with `margin` before all but its first line.
std::string docstring(const std::vector<std::string>& lines, const std::string& margin);

}  // namespace vu
