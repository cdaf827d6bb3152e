#include "pubsubmsg.h"

#include <array>
#include <cmath>
#include <memory>
#include <type_traits>

#include "object.h"
#include "record.h"
#include "vu_mom_types.h"

namespace vu {
namespace {

// The object has two words beside the result: its own copy of the record, freed with it,
// and the key, a tuple of plain values that no cycle can pass through, which is null until
// somebody asks for it.
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

// A message comes and goes with every reply. The last ones that went are used again, each with
// its record.
class Spares {
 public:
  // A message that has its record and nothing else; as if allocated. Null where there is none.
  PubSubMsg* take() {
    if (count_ == 0) return nullptr;
    PubSubMsg* const message = spares_[--count_];
    py::use_again(reinterpret_cast<PyObject*>(message));
    return message;
  }

  // False where it is one too many. The message is not tracked, not referred to and empty.
  bool keep(PubSubMsg* message) {
    if (count_ == spares_.size()) return false;
    spares_[count_++] = message;
    return true;
  }

 private:
  std::array<PubSubMsg*, 8> spares_{};
  std::size_t count_ = 0;
};
Spares spares;

const Record& record_of(PyObject* self) { return *as<PubSubMsg>(self).record; }

// A message with an empty result, whose record the caller fills in.
py::Owned make(PyTypeObject* type, py::Owned key) {
  PubSubMsg* message = spares.take();
  if (message == nullptr) {
    auto record = std::make_unique<Record>();
    message = allocate<PubSubMsg>(type);
    message->record = record.release();
  }
  message->result = py::Owned::share(py::Borrowed(Py_None)).release();
  message->key = key.is_null() ? nullptr : key.release();
  return finished(message);
}

py::Borrowed key_of(PyObject* self) {
  auto& message = as<PubSubMsg>(self);
  if (message.key == nullptr) message.key = decode_key(message.record->key).release();
  return py::Borrowed(message.key);
}

// PubSubMsg(record)
py::Owned construct(PyTypeObject* type, const std::array<py::Borrowed, 1>& arguments) {
  const vu_mom_reply& reply = delivered_record(Callee{type}, arguments[0]);
  py::Owned message = make(type, py::Owned());
  copy_record(reply, *as<PubSubMsg>(message.get()).record);
  return message;
}
constexpr Constructor<1> kConstructor = {{"record"}, construct};

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
    py::Owned key = given_key.is_null() ? decode_key({}) : take_key(callee, given_key);
    const py::Borrowed result = given_result.is_null() ? py::Borrowed(Py_None) : given_result;
    py::Owned message = make(type, std::move(key));
    *as<PubSubMsg>(message.get()).record = std::move(record);
    py::replace(as<PubSubMsg>(message.get()).result, py::Owned::share(result));
    return message;
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

PyObject* get_key(PyObject* self, void*) {
  return py::enter([&] { return py::Owned::share(key_of(self)); });
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
  Py_CLEAR(message.result);
  Py_CLEAR(message.key);
  if (spares.keep(&message)) return;
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
                                              shown.get(), key_of(self).get(), message.result));
    });
  });
}

bool equal(PyObject* a, PyObject* b) {
  if (!(record_of(a) == record_of(b))) return false;
  const int same_key = PyObject_RichCompareBool(key_of(a).get(), key_of(b).get(), Py_EQ);
  if (py::checked(same_key) == 0) return false;
  const auto& left = as<PubSubMsg>(a);
  const auto& right = as<PubSubMsg>(b);
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
    py::attribute("key", get_key, nullptr,
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
  set_constructor<kConstructor>(type);
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
