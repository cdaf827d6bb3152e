#include "record.h"

#include <cstring>
#include <vector>

#include "object.h"

namespace vu {
namespace {

// Reads an identity from front to back.
class KeyReader {
 public:
  KeyReader(const unsigned char* key, std::size_t size) : next_(key), left_(size) {}

  bool at_end() const { return left_ == 0; }

  py::Owned component() {
    switch (const unsigned char kind = *take(1); kind) {
      case 'i':
        return py::checked(PyLong_FromLongLong(static_cast<long long>(number(8))));
      case 'u':
        return py::checked(PyLong_FromUnsignedLongLong(number(8)));
      case 'b':
        return py::checked(PyBool_FromLong(*take(1)));
      case 's': {
        const auto [text, size] = sized();
        return py::checked(PyUnicode_DecodeUTF8(text, size, "surrogateescape"));
      }
      case 'y': {
        const auto [bytes, size] = sized();
        return py::checked(PyBytes_FromStringAndSize(bytes, size));
      }
      default:
        py::raise(PyExc_ValueError, "the record's key has a component of unknown kind %d",
                  static_cast<int>(kind));
    }
  }

 private:
  struct Sized {
    const char* bytes;
    Py_ssize_t size;
  };

  const unsigned char* take(std::size_t size) {
    if (size > left_) py::raise(PyExc_ValueError, "the record's key is cut short");
    left_ -= size;
    return std::exchange(next_, next_ + size);
  }

  std::uint64_t number(std::size_t size) {
    const unsigned char* bytes = take(size);
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;) value = value << 8 | bytes[i];
    return value;
  }

  Sized sized() {
    const auto size = static_cast<std::size_t>(number(4));
    return {reinterpret_cast<const char*>(take(size)), static_cast<Py_ssize_t>(size)};
  }

  const unsigned char* next_;
  std::size_t left_;
};

}  // namespace

Record copy_record(const vu_mom_reply& reply) {
  const vu_platform_details& details = *vu_platform_details_of(&reply);
  Record record;
  record.time_us = details.time_us;
  record.count = details.count;
  record.status = details.status;
  record.db = details.db;
  record.type_code = reply.type_code;
  record.end = reply.end_mark;
  record.tag = details.tag;
  record.error.assign(details.error, strnlen(details.error, sizeof details.error));
  return record;
}

py::Owned decode_key(const unsigned char* key, std::size_t size) {
  std::vector<py::Owned> components;
  if (key != nullptr) {
    for (KeyReader reader(key, size); !reader.at_end();) components.push_back(reader.component());
  }
  return tuple_of(components.size(), [&](std::size_t i) { return std::move(components[i]); });
}

}  // namespace vu
