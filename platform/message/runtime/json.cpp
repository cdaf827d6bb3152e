#include "json.h"

#include <google/protobuf/io/zero_copy_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/type_resolver.h>
#include <google/protobuf/util/type_resolver_util.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "errors.h"
#include "json_limits.h"
#include "message_bytes.h"
#include "message_class.h"
#include "pool.h"

namespace vu {

namespace pb = google::protobuf;

namespace {

constexpr Py_ssize_t kMostIndent = 100;
constexpr const char* kUrlPrefix = "type.googleapis.com";

pb::util::TypeResolver& resolver() {
  static auto& made =
      *pb::util::NewTypeResolverForDescriptorPool(kUrlPrefix, &Pool::instance().descriptors());
  return made;
}

std::string url_of(const MessageInfo& info) {
  return std::string(kUrlPrefix) + "/" + info.descriptor->full_name();
}

// libprotobuf says "(leaves[1].values[0]): ...", "(leaf) name: ...", ": ..." of the message
// itself, and "..." of the text.
[[noreturn]] void raise_status(PyObject* error, const MessageInfo& info,
                               const pb::util::Status& status) {
  const std::string said(status.message().data(), status.message().size());
  const std::size_t end = said.find(')');
  std::string text = info.name();
  std::size_t rest = 0;
  if (said.compare(0, 1, "(") == 0 && end != std::string::npos) {
    text += "." + said.substr(1, end - 1);
    rest = end + 1;
    if (said.compare(rest, 1, " ") == 0) {
      text += ".";
      ++rest;
    }
  } else if (said.compare(0, 1, ":") != 0) {
    text += ": ";
  }
  text += said.substr(rest);
  const std::string url = std::string(kUrlPrefix) + "/";
  for (std::size_t at = text.find(url); at != std::string::npos; at = text.find(url, at)) {
    text.erase(at, url.size());
  }
  py::raise(error, "%s", text.c_str());
}

// What libprotobuf writes to. It ends the process where an exception passes what writes: where
// there is no memory it is told of an error.
class Output : public pb::io::ZeroCopyOutputStream {
 public:
  bool Next(void** data, int* size) override {
    const std::size_t written = text_.size();
    const std::size_t more = std::clamp<std::size_t>(written, 256, 1 << 20);
    try {
      text_.resize(written + more);
    } catch (const std::bad_alloc&) {
      is_out_of_memory_ = true;
      return false;
    }
    *data = text_.data() + written;
    *size = static_cast<int>(more);
    return true;
  }
  void BackUp(int count) override { text_.resize(text_.size() - static_cast<std::size_t>(count)); }
  std::int64_t ByteCount() const override { return static_cast<std::int64_t>(text_.size()); }

  // Throws std::bad_alloc where there was no memory for all of it.
  const std::string& text() const {
    if (is_out_of_memory_) throw std::bad_alloc();
    return text_;
  }

 private:
  std::string text_;
  bool is_out_of_memory_ = false;
};

Py_ssize_t indent_argument(py::Borrowed value) {
  const Py_ssize_t indent = PyNumber_AsSsize_t(value.get(), PyExc_ValueError);
  if (indent == -1 && PyErr_Occurred() != nullptr) throw py::PythonError();
  if (indent < 0 || indent > kMostIndent) {
    py::raise(PyExc_ValueError, "ToJson(): indent must be from 0 to %zd, not %zd", kMostIndent,
              indent);
  }
  return indent;
}

// Lines that are indented by one space at each level, by so many. No line begins within a string.
std::string indented(const std::string& json, std::size_t width) {
  std::string text;
  std::size_t start = 0;
  while (start < json.size()) {
    const std::size_t content = json.find_first_not_of(' ', start);
    const std::size_t end = std::min(json.find('\n', start), json.size());
    if (start != 0) text += '\n';
    text.append((content - start) * width, ' ');
    text.append(json, content, end - content);
    start = end + 1;
  }
  return text;
}

}  // namespace

const char* const kToJsonDoc =
    "ToJson(*, indent=None, including_default_value_fields=False,\n"
    "       preserving_proto_field_name=False, use_integers_for_enums=False)\n--\n\n"
    "The message as JSON text, by the JSON mapping of protocol buffers. Without indent it is\n"
    "one line, else a member on each, indented by so many spaces (0 to 100) at each level.\n"
    "The fields that are not set are left out, or all but messages and members of oneofs\n"
    "are included; names are those for JSON (\"lowerCamelCase\"), or those of the .proto file;\n"
    "enums are names, or numbers. Unknown fields and extensions are left out.\n"
    "EncodeError, naming the field: JSON cannot say this, as a Timestamp out of range.";

const char* const kFromJsonDoc =
    "FromJson(text, *, ignore_unknown_fields=False)\n--\n\n"
    "A new message from JSON text (a str), by the JSON mapping of protocol buffers. Names are\n"
    "those for JSON or those of the .proto file; null leaves a field alone. DecodeError, naming\n"
    "the field: the text is no JSON, or not of such a message, or names a field that the type\n"
    "does not have, unless such fields are to be ignored.";

PyObject* to_json(PyObject* self, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    static const char* names[] = {"indent", "including_default_value_fields",
                                  "preserving_proto_field_name", "use_integers_for_enums", nullptr};
    PyObject* indent = Py_None;
    int defaults = 0;
    int proto_names = 0;
    int numbers = 0;
    if (!PyArg_ParseTupleAndKeywords(arguments, keywords, "|$Oppp:ToJson",
                                     const_cast<char**>(names), &indent, &defaults, &proto_names,
                                     &numbers)) {
      throw py::PythonError();
    }
    const bool one_line = indent == Py_None;
    const Py_ssize_t width = one_line ? 0 : indent_argument(py::Borrowed(indent));
    pb::util::JsonPrintOptions options;
    options.add_whitespace = !one_line;
    options.always_print_primitive_fields = defaults != 0;
    options.preserve_proto_field_names = proto_names != 0;
    options.always_print_enums_as_ints = numbers != 0;
    const auto& message = *static_cast<const MessageObject*>(self);
    const MessageInfo& info = *message.info;
    check_groups(encode_error, info);
    if (options.always_print_primitive_fields) check_defaults(info);
    const pb::LogSilencer quiet;  // what it says of errors is in the exception
    const std::string bytes = serialized_text(message);
    check_texts(info, bytes);
    pb::io::ArrayInputStream input(bytes.data(), static_cast<int>(bytes.size()));
    Output output;
    const pb::util::Status status =
        pb::util::BinaryToJsonStream(&resolver(), url_of(info), &input, &output, options);
    const std::string& written = output.text();
    if (!status.ok()) raise_status(encode_error, info, status);
    const std::string json =
        one_line ? written : indented(written, static_cast<std::size_t>(width));
    return py::checked(
        PyUnicode_DecodeUTF8(json.data(), static_cast<Py_ssize_t>(json.size()), nullptr));
  });
}

PyObject* from_json(PyObject* cls, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    static const char* names[] = {"text", "ignore_unknown_fields", nullptr};
    PyObject* text = nullptr;
    int ignore_unknown = 0;
    if (!PyArg_ParseTupleAndKeywords(arguments, keywords, "U|$p:FromJson",
                                     const_cast<char**>(names), &text, &ignore_unknown)) {
      throw py::PythonError();
    }
    auto* const type = reinterpret_cast<PyTypeObject*>(cls);
    const MessageInfo& info = concrete_info(type);
    Py_ssize_t size = 0;
    const char* const json = PyUnicode_AsUTF8AndSize(text, &size);
    if (json == nullptr) throw py::PythonError();
    check_groups(decode_error, info);
    const pb::LogSilencer quiet;  // what it says of errors is in the exception
    pb::util::JsonParseOptions options;
    options.ignore_unknown_fields = ignore_unknown != 0;
    std::string bytes;
    const pb::util::Status status = pb::util::JsonToBinaryString(
        &resolver(), url_of(info), {json, static_cast<std::size_t>(size)}, &bytes, options);
    if (!status.ok()) raise_status(decode_error, info, status);
    return new_message(type, parsed(info, bytes));
  });
}

}  // namespace vu
