#include "record.h"

#include <cstring>
#include <utility>
#include <vector>

#include "object.h"

namespace vu {
namespace {

// Reads an identity from front to back.
class KeyReader {
 public:
  KeyReader(const unsigned char* key, std::size_t size) : next_(key), left_(size) {}

  bool at_end() const { return left_ == 0; }

  // Goes past a component.
  void skip() {
    switch (const unsigned char kind = *take(1); kind) {
      case 'i':
      case 'u':
        take(8);
        return;
      case 'b':
        take(1);
        return;
      case 's':
      case 'y':
        sized();
        return;
      default:
        raise_unknown(kind);
    }
  }

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
        raise_unknown(kind);
    }
  }

 private:
  [[noreturn]] static void raise_unknown(unsigned char kind) {
    py::raise(PyExc_ValueError, "the record's key has a component of unknown kind %d",
              static_cast<int>(kind));
  }

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

  std::pair<const char*, Py_ssize_t> sized() {
    const auto size = static_cast<std::size_t>(number(4));
    return {reinterpret_cast<const char*>(take(size)), static_cast<Py_ssize_t>(size)};
  }

  const unsigned char* next_;
  std::size_t left_;
};

}  // namespace

void copy_record(const vu_mom_reply& reply, Record& record) {
  const vu_platform_details& details = *vu_platform_details_of(&reply);
  record.key.clear();
  if (details.key != nullptr) {
    for (KeyReader reader(details.key, details.key_size); !reader.at_end();) reader.skip();
    record.key.assign(reinterpret_cast<const char*>(details.key), details.key_size);
  }
  record.time_us = details.time_us;
  record.count = details.count;
  record.status = details.status;
  record.db = details.db;
  record.type_code = reply.type_code;
  record.end = reply.end_mark;
  record.tag = details.tag;
  record.error.assign(details.error, strnlen(details.error, sizeof details.error));
}

py::Owned decode_key(const std::string& key) {
  std::vector<py::Owned> components;
  const auto* const bytes = reinterpret_cast<const unsigned char*>(key.data());
  for (KeyReader reader(bytes, key.size()); !reader.at_end();) {
    components.push_back(reader.component());
  }
  return tuple_of(components.size(), [&](std::size_t i) { return std::move(components[i]); });
}

}  // namespace vu
