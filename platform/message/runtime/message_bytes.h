// Messages as bytes.
#pragma once

#include <string_view>

#include "message.h"

namespace vu {

// The message as a bytes object, required fields or not. EncodeError: it is too large.
py::Owned serialized(const MessageObject& message, bool deterministic);

// The same as text.
std::string serialized_text(const MessageObject& message);

// A message from bytes. DecodeError: they are no such message.
std::unique_ptr<NativeMessage> parsed(const MessageInfo& info, std::string_view bytes);

// The contents of anything with a buffer, as long as it lives.
class Bytes {
 public:
  explicit Bytes(PyObject* object) {
    py::checked(PyObject_GetBuffer(object, &buffer_, PyBUF_SIMPLE));
  }
  ~Bytes() { PyBuffer_Release(&buffer_); }
  Bytes(const Bytes&) = delete;
  Bytes& operator=(const Bytes&) = delete;

  Py_ssize_t size() const { return buffer_.len; }
  std::string_view view() const {
    return {static_cast<const char*>(buffer_.buf), static_cast<std::size_t>(buffer_.len)};
  }

 private:
  Py_buffer buffer_;
};

}  // namespace vu
