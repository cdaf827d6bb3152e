#include "hash_result.h"

#include "delivered.h"
#include "object.h"
#include "vu_mom_types.h"

namespace vu {
namespace {

// All references are set for good when the object is made. There is no tp_clear: as with
// a tuple, a cycle through an object that never changes has another one to break it at.
struct HashResult {
  PyObject_HEAD PyObject* obj;
  PyObject* tags;
  PyObject* cls;
};
static_assert(sizeof(HashResult) == sizeof(MessagesResultObject));

py::Owned make(PyTypeObject* type, py::Owned obj, py::Owned tags, py::Owned cls) {
  auto* result = allocate<HashResult>(type);
  result->obj = obj.release();
  result->tags = tags.release();
  result->cls = cls.release();
  return finished(result);
}

py::Owned read_message(const vu_platform_payload& payload, py::Borrowed cls) {
  if (payload.messages == nullptr || payload.messages[0] == 0) {
    return py::Owned::share(py::Borrowed(Py_None));
  }
  return make_message(cls, payload.messages[0]);
}

// HashResult(data, cls)
py::Owned construct(PyTypeObject* type, const std::array<py::Borrowed, 2>& arguments) {
  const Callee callee{type};
  const auto [data, given_cls] = arguments;
  py::Owned cls = message_class(callee, given_cls);
  const auto& payload = delivered_payload(callee, data, VU_PLATFORM_PAYLOAD_HASH);
  py::Owned tags = tuple_of(payload.count, [&](std::size_t i) {
    return py::checked(PyLong_FromSize_t(payload.tags[i]));
  });
  py::Owned obj = read_message(payload, cls);
  return make(type, std::move(obj), std::move(tags), std::move(cls));
}
constexpr Constructor<2> kConstructor = {{"data", "cls"}, construct};

// HashResult.of(obj, tags, cls)
PyObject* of(PyObject* self, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    auto* type = reinterpret_cast<PyTypeObject*>(self);
    const Callee callee{type, ".of"};
    const auto [obj, given_tags, given_cls] =
        bind<3>(callee, {"obj", "tags", "cls"}, 3, arguments, keywords);
    py::Owned cls = message_class(callee, given_cls);
    const py::Owned source = py::checked(PySequence_Tuple(given_tags.get()));
    const auto count = static_cast<std::size_t>(PyTuple_GET_SIZE(source.get()));
    py::Owned tags = tuple_of(count, [&](std::size_t i) {
      const py::Borrowed tag(PyTuple_GET_ITEM(source.get(), static_cast<Py_ssize_t>(i)));
      return py::checked(PyLong_FromUnsignedLong(integer<std::uint32_t>(callee, "tags", tag)));
    });
    return make(type, py::Owned::share(obj), std::move(tags), std::move(cls));
  });
}

void destroy(PyObject* self) {
  PyObject_GC_UnTrack(self);
  Py_CLEAR(as<HashResult>(self).obj);
  Py_CLEAR(as<HashResult>(self).tags);
  Py_CLEAR(as<HashResult>(self).cls);
  Py_TYPE(self)->tp_free(self);
}

int traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(as<HashResult>(self).obj);
  Py_VISIT(as<HashResult>(self).tags);
  Py_VISIT(as<HashResult>(self).cls);
  return 0;
}

template <PyObject* HashResult::*kField>
PyObject* field(PyObject* self, void*) {
  return py::Owned::share(py::Borrowed(as<HashResult>(self).*kField)).release();
}

PyObject* repr(PyObject* self) {
  return py::enter([&] {
    return guarded_repr(self, [&] {
      const auto& result = as<HashResult>(self);
      return py::checked(
          PyUnicode_FromFormat("HashResult(obj=%R, tags=%R)", result.obj, result.tags));
    });
  });
}

// obj and tags; the class they were read with says nothing more.
py::Owned content(PyObject* self) {
  const auto& result = as<HashResult>(self);
  return py::checked(PyTuple_Pack(2, result.obj, result.tags));
}

PyObject* compare(PyObject* self, PyObject* other, int operation) {
  const bool comparable =
      (operation == Py_EQ || operation == Py_NE) && Py_TYPE(other) == Py_TYPE(self);
  if (!comparable) Py_RETURN_NOTIMPLEMENTED;
  return py::enter([&] {
    const py::Owned mine = content(self);
    const py::Owned theirs = content(other);
    return py::checked(PyObject_RichCompare(mine.get(), theirs.get(), operation));
  });
}

Py_hash_t hash(PyObject* self) {
  Py_hash_t value = -1;
  py::enter_status([&] {
    value = PyObject_Hash(content(self).get());
    if (value == -1) throw py::PythonError();
  });
  return value;
}

PyObject* reduce(PyObject* self, PyObject*) {
  return py::enter([&] {
    const auto& result = as<HashResult>(self);
    py::Owned arguments = py::checked(PyTuple_Pack(3, result.obj, result.tags, result.cls));
    return rebuilt_by_of(Py_TYPE(self), std::move(arguments));
  });
}

PyGetSetDef attributes[] = {
    py::attribute("obj", field<&HashResult::obj>, nullptr,
                  "A message with the fields that there are; None where there is none."),
    py::attribute("tags", field<&HashResult::tags>, nullptr,
                  "The numbers of the fields concerned, ascending, as a tuple. A field that obj\n"
                  "does not carry was deleted, or is absent."),
    py::attribute("cls", field<&HashResult::cls>, nullptr, "What the message was made with."),
    {}};

PyMethodDef methods[] = {
    {"of", py::method_pointer(of), METH_CLASS | METH_VARARGS | METH_KEYWORDS,
     "of($type, obj, tags, cls)\n--\n\nA result with a message and field numbers of "
     "one's own: for tests,\n"
     "and for unpickling."},
    {"__reduce__", reduce, METH_NOARGS, "How a result is pickled and copied."},
    {"__class_getitem__", generic_class, METH_CLASS | METH_O, kGenericDoc},
    {}};

PyTypeObject make_type() {
  PyTypeObject type = py::static_type("vu_mom_common.HashResult", sizeof(HashResult));
  type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC;
  type.tp_doc =
      "HashResult(data, cls)\n--\n\nFields of a message that is stored field by field: what was\n"
      "read, or what a change concerns. Equal to a HashResult with an equal message and the\n"
      "same tags.";
  set_constructor<kConstructor>(type);
  type.tp_dealloc = destroy;
  type.tp_traverse = traverse;
  type.tp_repr = repr;
  type.tp_hash = hash;
  type.tp_richcompare = compare;
  type.tp_methods = methods;
  type.tp_getset = attributes;
  return type;
}
PyTypeObject hash_result = make_type();

}  // namespace

void add_hash_result(py::Borrowed module) { add_type(module, hash_result); }

}  // namespace vu
