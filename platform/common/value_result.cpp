#include "value_result.h"

#include <array>

#include "delivered.h"
#include "object.h"
#include "vu_mom_types.h"

namespace vu {
namespace {

// `value` is an exact int, a bool or an exact float, never null; nothing that could be
// part of a cycle. The second field is unused.
struct ValueResult {
  PyObject_HEAD PyObject* value;
  void* unused;
};
static_assert(sizeof(ValueResult) == sizeof(ValueResultObject));

// The three kinds of value, each with what it reads from a payload and what `of` takes.

struct Number {
  static constexpr auto kPayload = VU_PLATFORM_PAYLOAD_INTEGER;
  static py::Owned read(const vu_platform_payload& payload) {
    return py::checked(PyLong_FromLongLong(payload.integer));
  }
  static py::Owned take(const Callee& callee, py::Borrowed value) {
    return py::checked(PyLong_FromLongLong(integer<std::int64_t>(callee, "value", value)));
  }
};

struct Truth {
  static constexpr auto kPayload = VU_PLATFORM_PAYLOAD_INTEGER;
  static py::Owned read(const vu_platform_payload& payload) {
    return py::checked(PyBool_FromLong(payload.integer != 0));
  }
  static py::Owned take(const Callee& callee, py::Borrowed value) {
    if (PyBool_Check(value.get()) == 0) raise_wrong_type(callee, "value", "a bool", value);
    return py::Owned::share(value);
  }
};

struct Score {
  static constexpr auto kPayload = VU_PLATFORM_PAYLOAD_SCORE;
  static py::Owned read(const vu_platform_payload& payload) {
    return py::checked(PyFloat_FromDouble(payload.score));
  }
  static py::Owned take(const Callee& callee, py::Borrowed value) {
    return py::checked(PyFloat_FromDouble(real_number(callee, "value", value)));
  }
};

py::Owned make(PyTypeObject* type, py::Owned value) {
  auto* result = allocate<ValueResult>(type);
  result->value = value.release();
  return finished(result);
}

// IncrResult(data)
template <typename Kind>
py::Owned construct(PyTypeObject* type, const std::array<py::Borrowed, 1>& arguments) {
  return make(type, Kind::read(delivered_payload(Callee{type}, arguments[0], Kind::kPayload)));
}
template <typename Kind>
constexpr Constructor<1> kConstructor = {{"data"}, construct<Kind>};

// IncrResult.of(value)
template <typename Kind>
PyObject* of(PyObject* cls, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    auto* type = reinterpret_cast<PyTypeObject*>(cls);
    const Callee callee{type, ".of"};
    const auto [value] = bind<1>(callee, {"value"}, 1, arguments, keywords);
    return make(type, Kind::take(callee, value));
  });
}

void destroy(PyObject* self) {
  Py_CLEAR(as<ValueResult>(self).value);
  Py_TYPE(self)->tp_free(self);
}

PyObject* value(PyObject* self, void*) {
  return py::Owned::share(py::Borrowed(as<ValueResult>(self).value)).release();
}

PyObject* repr(PyObject* self) {
  return PyUnicode_FromFormat("%s(value=%R)", short_name(Py_TYPE(self)),
                              as<ValueResult>(self).value);
}

Py_hash_t hash(PyObject* self) { return PyObject_Hash(as<ValueResult>(self).value); }

// With a result of the same type and with int, bool and float, as the value compares.
PyObject* compare(PyObject* self, PyObject* other, int operation) {
  PyObject* mine = as<ValueResult>(self).value;
  PyObject* theirs = nullptr;
  if (Py_TYPE(other) == Py_TYPE(self)) {
    theirs = as<ValueResult>(other).value;
  } else if (PyLong_Check(other) || PyFloat_Check(other)) {
    theirs = other;
  } else {
    Py_RETURN_NOTIMPLEMENTED;
  }
  return PyObject_RichCompare(mine, theirs, operation);
}

int is_true(PyObject* self) { return PyObject_IsTrue(as<ValueResult>(self).value); }
PyObject* as_int(PyObject* self) { return PyNumber_Long(as<ValueResult>(self).value); }
PyObject* as_float(PyObject* self) { return PyNumber_Float(as<ValueResult>(self).value); }

PyObject* reduce(PyObject* self, PyObject*) {
  return py::enter([&] {
    py::Owned arguments = py::checked(PyTuple_Pack(1, as<ValueResult>(self).value));
    return rebuilt_by_of(Py_TYPE(self), std::move(arguments));
  });
}

// ---- Types ----------------------------------------------------------------------

PyGetSetDef attributes[] = {
    py::attribute("value", value, nullptr, "The value that the store replied with."), {}};

PyMethodDef base_methods[] = {
    {"__reduce__", reduce, METH_NOARGS, "How a result is pickled and copied."},
    {"__class_getitem__", generic_class, METH_CLASS | METH_O, kGenericDoc},
    {}};

template <typename Kind>
PyMethodDef kind_methods[] = {
    {"of", py::method_pointer(of<Kind>), METH_CLASS | METH_VARARGS | METH_KEYWORDS,
     "of($type, value)\n--\n\nA result with a value of one's own: for tests, and for unpickling."},
    {}};

PyNumberMethods number_slots(bool whole) {
  PyNumberMethods slots = {};
  slots.nb_bool = is_true;
  slots.nb_int = as_int;
  slots.nb_float = as_float;
  if (whole) slots.nb_index = as_int;
  return slots;
}
PyNumberMethods whole_slots = number_slots(true);
PyNumberMethods real_slots = number_slots(false);

PyTypeObject make_base() {
  PyTypeObject type = py::static_type("vu_mom_common.ValueResult", sizeof(ValueResult));
  type.tp_flags = Py_TPFLAGS_DEFAULT;
  type.tp_doc =
      "What all results of one value have in common: the value, as .value and by int(),\n"
      "float() and bool(); comparison and order with results of the same type and with\n"
      "plain numbers; a hash equal to the value's; pickling. Has no instances itself.";
  type.tp_dealloc = destroy;
  type.tp_repr = repr;
  type.tp_hash = hash;
  type.tp_richcompare = compare;
  type.tp_as_number = &real_slots;
  type.tp_getset = attributes;
  type.tp_methods = base_methods;
  return type;
}
PyTypeObject base = make_base();

template <typename Kind>
PyTypeObject make_type(const char* name, const char* doc) {
  PyTypeObject type = py::static_type(name, sizeof(ValueResult));
  type.tp_flags = Py_TPFLAGS_DEFAULT;
  type.tp_doc = doc;
  type.tp_base = &base;
  set_constructor<kConstructor<Kind>>(type);
  type.tp_methods = kind_methods<Kind>;
  if (Kind::kPayload == VU_PLATFORM_PAYLOAD_INTEGER) type.tp_as_number = &whole_slots;
  return type;
}

PyTypeObject types[] = {
    make_type<Number>("vu_mom_common.GetResult",
                      "GetResult(data)\n--\n\nAn integer read from the store."),
    make_type<Number>("vu_mom_common.IncrResult",
                      "IncrResult(data)\n--\n\nThe reply to incr: the counter's new value."),
    make_type<Truth>("vu_mom_common.SetnxResult",
                     "SetnxResult(data)\n--\n\nThe reply to setnx: True where the object was\n"
                     "stored, False where there was one already."),
    make_type<Number>("vu_mom_common.LlenResult",
                      "LlenResult(data)\n--\n\nThe reply to llen: how many messages the list has."),
    make_type<Number>("vu_mom_common.LinsertResult",
                      "LinsertResult(data)\n--\n\nThe reply to linsert: the list's new length, or\n"
                      "-1 where it has no such pivot."),
    make_type<Number>("vu_mom_common.LminsertResult",
                      "LminsertResult(data)\n--\n\nThe reply to an insertion of several messages:\n"
                      "the list's new length, or -1 where it has no such pivot."),
    make_type<Number>("vu_mom_common.LmremResult",
                      "LmremResult(data)\n--\n\nThe reply to a removal of several messages: how\n"
                      "many were removed."),
    make_type<Truth>("vu_mom_common.LsetResult",
                     "LsetResult(data)\n--\n\nThe reply to lset: True where the message was\n"
                     "replaced, False where the list has no such position."),
    make_type<Number>("vu_mom_common.SaveResult",
                      "SaveResult(data)\n--\n\nThe reply to a request to save: how many objects\n"
                      "were saved."),
    make_type<Number>("vu_mom_common.ZcardResult",
                      "ZcardResult(data)\n--\n\nThe reply to zcard: how many members the sorted\n"
                      "set has."),
    make_type<Number>("vu_mom_common.ZrankResult",
                      "ZrankResult(data)\n--\n\nThe reply to zrank: the member's rank by score,\n"
                      "from 0."),
    make_type<Score>("vu_mom_common.ZscoreResult",
                     "ZscoreResult(data)\n--\n\nThe reply to zscore: the member's score, a float."),
    make_type<Number>(
        "vu_mom_common.ZcountResult",
        "ZcountResult(data)\n--\n\nThe reply to zcount: how many members have a score\n"
        "within the bounds."),
    make_type<Number>("vu_mom_common.ScardResult",
                      "ScardResult(data)\n--\n\nThe reply to scard: how many members the set has."),
    make_type<Truth>("vu_mom_common.SismemberResult",
                     "SismemberResult(data)\n--\n\nThe reply to sismember: True where the set has\n"
                     "the member."),
};

}  // namespace

void add_value_results(py::Borrowed module) {
  add_type(module, base);
  for (PyTypeObject& type : types) add_type(module, type);
}

}  // namespace vu
