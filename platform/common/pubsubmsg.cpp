#include "pubsubmsg.h"

#include <cmath>
#include <memory>
#include <type_traits>

#include "object.h"
#include "record.h"
#include "vu_mom_types.h"

namespace vu {
namespace {

// The object has two words beside the result: its own copy of the record, freed with it,
// and the decoded key, a tuple of plain values that no cycle can pass through.
//
// `result` is the binding's to replace, so it comes first and is never null: None until
// something is put there, and None again when the garbage collector clears the object.
struct PubSubMsg {
  PyObject_HEAD PyObject* result;
  Record* record;
  PyObject* key;
};
static_assert(sizeof(PubSubMsg) == sizeof(PubSubMsgObject));
static_assert(offsetof(PubSubMsg, result) == offsetof(PubSubMsgObject, result));

const Record& record_of(PyObject* self) { return *as<PubSubMsg>(self).record; }

py::Owned make(PyTypeObject* type, Record record, py::Owned key, py::Owned result) {
  auto copy = std::make_unique<Record>(std::move(record));
  auto* message = allocate<PubSubMsg>(type);
  message->result = result.release();
  message->record = copy.release();
  message->key = key.release();
  return finished(message);
}

// PubSubMsg(record)
PyObject* construct(PyTypeObject* type, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    const Callee callee{type};
    const auto [address] = bind<1>(callee, {"record"}, 1, arguments, keywords);
    const vu_mom_reply& reply = delivered_record(callee, address);
    const vu_platform_details& details = *vu_platform_details_of(&reply);
    py::Owned key = decode_key(details.key, details.key_size);
    return make(type, copy_record(reply), std::move(key), py::Owned::share(py::Borrowed(Py_None)));
  });
}

// ---- PubSubMsg.of(...) ---------------------------------------------------------------

// A key as decode_key makes one: exact values only.
py::Owned take_key(const Callee& callee, py::Borrowed given) {
  const py::Owned source = py::checked(PySequence_Tuple(given.get()));
  const auto count = static_cast<std::size_t>(PyTuple_GET_SIZE(source.get()));
  return tuple_of(count, [&](std::size_t i) {
    const py::Borrowed part(PyTuple_GET_ITEM(source.get(), static_cast<Py_ssize_t>(i)));
    PyObject* raw = part.get();
    const bool plain = PyLong_CheckExact(raw) || PyBool_Check(raw) || PyUnicode_CheckExact(raw) ||
                       PyBytes_CheckExact(raw);
    if (!plain) raise_wrong_type(callee, "key", "made of int, bool, str and bytes", part);
    return py::Owned::share(part);
  });
}

std::string take_text(const Callee& callee, const char* argument, py::Borrowed text) {
  if (PyUnicode_Check(text.get()) == 0) raise_wrong_type(callee, argument, "a str", text);
  const py::Owned bytes =
      py::checked(PyUnicode_AsEncodedString(text.get(), "utf-8", "surrogateescape"));
  return std::string(PyBytes_AS_STRING(bytes.get()),
                     static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.get())));
}

constexpr double kMicroseconds = 1e6;

std::int64_t take_time(const Callee& callee, py::Borrowed seconds) {
  const double microseconds = std::round(real_number(callee, "time", seconds) * kMicroseconds);
  constexpr double kLimit = 9.2e18;  // below 2**63
  if (!(std::abs(microseconds) < kLimit)) {
    py::raise(PyExc_OverflowError, "PubSubMsg.of() argument 'time' is out of range");
  }
  return static_cast<std::int64_t>(microseconds);
}

// The arguments of `of`, in order; also the names of the attributes that they become.
constexpr std::array kContent = {"result", "type_code", "end", "status", "error",
                                 "db",     "key",       "tag", "time",   "count"};

PyObject* of(PyObject* self, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    auto* type = reinterpret_cast<PyTypeObject*>(self);
    const Callee callee{type, ".of"};
    const auto [given_result, type_code, end, status, error, db, given_key, tag, time, count] =
        bind(callee, kContent, 0, arguments, keywords);
    Record record;
    const auto set = [&](auto& field, const char* name, py::Borrowed value) {
      if (!value.is_null()) field = integer<std::decay_t<decltype(field)>>(callee, name, value);
    };
    set(record.type_code, "type_code", type_code);
    set(record.end, "end", end);
    set(record.status, "status", status);
    if (!error.is_null()) record.error = take_text(callee, "error", error);
    set(record.db, "db", db);
    set(record.tag, "tag", tag);
    if (!time.is_null()) record.time_us = take_time(callee, time);
    set(record.count, "count", count);
    py::Owned key = given_key.is_null() ? decode_key(nullptr, 0) : take_key(callee, given_key);
    const py::Borrowed result = given_result.is_null() ? py::Borrowed(Py_None) : given_result;
    return make(type, std::move(record), std::move(key), py::Owned::share(result));
  });
}

// ---- Attributes ----------------------------------------------------------------------

py::Owned to_python(std::int32_t value) { return py::checked(PyLong_FromLong(value)); }
py::Owned to_python(std::uint32_t value) { return py::checked(PyLong_FromUnsignedLong(value)); }
py::Owned to_python(std::int64_t value) { return py::checked(PyLong_FromLongLong(value)); }
py::Owned to_python(const std::string& value) {
  return py::checked(
      PyUnicode_DecodeUTF8(value.data(), static_cast<Py_ssize_t>(value.size()), "surrogateescape"));
}

template <auto kField>
PyObject* field(PyObject* self, void*) {
  return py::enter([&] { return to_python(record_of(self).*kField); });
}

PyObject* time_of(PyObject* self, void*) {
  return PyFloat_FromDouble(static_cast<double>(record_of(self).time_us) / kMicroseconds);
}

PyObject* key_of(PyObject* self, void*) {
  return py::Owned::share(py::Borrowed(as<PubSubMsg>(self).key)).release();
}

PyObject* result_of(PyObject* self, void*) {
  return py::Owned::share(py::Borrowed(as<PubSubMsg>(self).result)).release();
}

// ---- Behaviour -----------------------------------------------------------------------

int traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(as<PubSubMsg>(self).result);
  Py_VISIT(as<PubSubMsg>(self).key);
  return 0;
}

int clear(PyObject* self) {
  py::replace(as<PubSubMsg>(self).result, py::Owned::share(py::Borrowed(Py_None)));
  return 0;
}

void destroy(PyObject* self) {
  PyObject_GC_UnTrack(self);
  auto& message = as<PubSubMsg>(self);
  Py_XDECREF(message.result);
  Py_XDECREF(message.key);
  delete message.record;
  Py_TYPE(self)->tp_free(self);
}

// What differs from an ordinary reply, with type_code, key and result always there.
PyObject* repr(PyObject* self) {
  return py::enter([&] {
    return guarded_repr(self, [&] {
      const Record& record = record_of(self);
      std::string numbers = "type_code=" + std::to_string(record.type_code);
      const auto add = [&](const char* name, auto value) {
        if (value != 0) numbers += std::string(", ") + name + "=" + std::to_string(value);
      };
      add("end", record.end);
      add("db", record.db);
      add("tag", record.tag);
      add("count", record.count);
      add("status", record.status);
      const py::Owned error = to_python(record.error);
      const py::Owned shown = record.error.empty()
                                  ? py::checked(PyUnicode_FromString(""))
                                  : py::checked(PyUnicode_FromFormat(", error=%R", error.get()));
      const auto& message = as<PubSubMsg>(self);
      return py::checked(PyUnicode_FromFormat("PubSubMsg(%s%U, key=%R, result=%R)", numbers.c_str(),
                                              shown.get(), message.key, message.result));
    });
  });
}

bool equal(PyObject* a, PyObject* b) {
  if (!(record_of(a) == record_of(b))) return false;
  const auto& left = as<PubSubMsg>(a);
  const auto& right = as<PubSubMsg>(b);
  if (py::checked(PyObject_RichCompareBool(left.key, right.key, Py_EQ)) == 0) return false;
  return py::checked(PyObject_RichCompareBool(left.result, right.result, Py_EQ)) != 0;
}

PyObject* compare(PyObject* self, PyObject* other, int operation) {
  const bool comparable =
      (operation == Py_EQ || operation == Py_NE) && Py_TYPE(other) == Py_TYPE(self);
  if (!comparable) Py_RETURN_NOTIMPLEMENTED;
  return py::enter([&] {
    const bool same = equal(self, other);
    return py::checked(PyBool_FromLong(same == (operation == Py_EQ)));
  });
}

PyObject* reduce(PyObject* self, PyObject*) {
  return py::enter([&] {
    py::Owned content = tuple_of(kContent.size(), [&](std::size_t i) {
      return py::checked(PyObject_GetAttrString(self, kContent[i]));
    });
    return rebuilt_by_of(Py_TYPE(self), std::move(content));
  });
}

// ---- The type --------------------------------------------------------------------------

PyGetSetDef attributes[] = {
    py::attribute("result", result_of, nullptr,
                  "The value that arrived: a message, a result object, or None."),
    py::attribute("type_code", field<&Record::type_code>, nullptr,
                  "What happened to the object; 0 where nothing did."),
    py::attribute("end", field<&Record::end>, nullptr,
                  "The end mark: not 0 on the last reply of a request that may have several."),
    py::attribute("status", field<&Record::status>, nullptr,
                  "0, or a negative number where the request failed."),
    py::attribute("error", field<&Record::error>, nullptr,
                  "Why the request failed, for people; empty where status is 0."),
    py::attribute("db", field<&Record::db>, nullptr, "The number of the object's database."),
    py::attribute("key", key_of, nullptr,
                  "The object's key components, a tuple of int, bool, str and bytes; empty for a\n"
                  "type without key fields, and where no object is named."),
    py::attribute("tag", field<&Record::tag>, nullptr,
                  "The number of the field that an event of a field concerns, else 0."),
    py::attribute("time", time_of, nullptr,
                  "When it happened: seconds since 1970 by the store's clock, a float."),
    py::attribute("count", field<&Record::count>, nullptr,
                  "On the last reply of a request on a level: how many objects there were."),
    {}};

PyMethodDef methods[] = {
    {"of", py::method_pointer(of), METH_CLASS | METH_VARARGS | METH_KEYWORDS,
     "of($type, result=None, type_code=0, end=0, status=0, error='', db=0, key=(), tag=0,\n"
     "   time=0.0, count=0)\n--\n\nA message with a content of one's own: for tests, and for "
     "unpickling."},
    {"__reduce__", reduce, METH_NOARGS, "How a message is pickled and copied."},
    {"__class_getitem__", generic_class, METH_CLASS | METH_O, kGenericDoc},
    {}};

PyTypeObject make_type() {
  PyTypeObject type = py::static_type("vu_mom_common.PubSubMsg", sizeof(PubSubMsg));
  type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC;
  type.tp_doc =
      "PubSubMsg(record)\n--\n\nWhat arrived: a reply to a command, an object of a scan, or a\n"
      "change of a subscribed object. Keeps a copy of everything, so it may be kept. Equal to\n"
      "a message with the same content, result included.";
  type.tp_new = construct;
  type.tp_dealloc = destroy;
  type.tp_traverse = traverse;
  type.tp_clear = clear;
  type.tp_repr = repr;
  type.tp_hash = PyObject_HashNotImplemented;
  type.tp_richcompare = compare;
  type.tp_methods = methods;
  type.tp_getset = attributes;
  return type;
}
PyTypeObject pubsubmsg = make_type();

}  // namespace

void add_pubsubmsg(py::Borrowed module) { add_type(module, pubsubmsg); }

}  // namespace vu
