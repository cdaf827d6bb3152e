#include "sequence.h"

#include "vu_mom_types.h"

namespace vu {
namespace {

// Both references are set for good when the object is made. There is no tp_clear: as with
// a tuple, a cycle through an object that never changes has another one to break it at.
struct Sequence {
  PyObject_HEAD PyObject* items;
  PyObject* cls;
  void* unused;
};
static_assert(sizeof(Sequence) == sizeof(MessagesResultObject));

void destroy(PyObject* self) {
  PyObject_GC_UnTrack(self);
  Py_CLEAR(as<Sequence>(self).items);
  Py_CLEAR(as<Sequence>(self).cls);
  Py_TYPE(self)->tp_free(self);
}

int traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(as<Sequence>(self).items);
  Py_VISIT(as<Sequence>(self).cls);
  return 0;
}

Py_ssize_t length(PyObject* self) { return PyTuple_GET_SIZE(items_of(self).get()); }

PyObject* item(PyObject* self, Py_ssize_t at) {
  if (at < 0 || at >= length(self)) {
    return PyErr_Format(PyExc_IndexError, "%s index out of range", short_name(Py_TYPE(self)));
  }
  return py::Owned::share(item_at(items_of(self), static_cast<std::size_t>(at))).release();
}

PyObject* subscript(PyObject* self, PyObject* key) {
  return py::enter([&] {
    if (PyIndex_Check(key) != 0) {
      const Py_ssize_t at = PyNumber_AsSsize_t(key, PyExc_IndexError);
      if (at == -1 && PyErr_Occurred() != nullptr) throw py::PythonError();
      return py::checked(item(self, at < 0 ? at + length(self) : at));
    }
    if (PySlice_Check(key) == 0) {
      py::raise(PyExc_TypeError, "%s indices must be integers or slices, not %.200s",
                short_name(Py_TYPE(self)), Py_TYPE(key)->tp_name);
    }
    py::Owned part = py::checked(PyObject_GetItem(items_of(self).get(), key));
    py::Owned cls = py::Owned::share(py::Borrowed(as<Sequence>(self).cls));
    return make_sequence(Py_TYPE(self), std::move(part), std::move(cls));
  });
}

int contains(PyObject* self, PyObject* value) {
  return PySequence_Contains(items_of(self).get(), value);
}

PyObject* iterate(PyObject* self) { return PyObject_GetIter(items_of(self).get()); }

Py_hash_t hash(PyObject* self) { return PyObject_Hash(items_of(self).get()); }

// With a result of the same type, a list and a tuple, item by item.
PyObject* compare(PyObject* self, PyObject* other, int operation) {
  if (operation != Py_EQ && operation != Py_NE) Py_RETURN_NOTIMPLEMENTED;
  return py::enter([&] {
    py::Owned theirs;
    if (Py_TYPE(other) == Py_TYPE(self)) {
      theirs = py::Owned::share(items_of(other));
    } else if (PyTuple_Check(other) || PyList_Check(other)) {
      theirs = py::checked(PySequence_Tuple(other));
    } else {
      return py::Owned::share(py::Borrowed(Py_NotImplemented));
    }
    return py::checked(PyObject_RichCompare(items_of(self).get(), theirs.get(), operation));
  });
}

// LrangeResult([...])
PyObject* repr(PyObject* self) {
  return py::enter([&] {
    return guarded_repr(self, [&] {
      const py::Owned list = py::checked(PySequence_List(items_of(self).get()));
      return py::checked(PyUnicode_FromFormat("%s(%R)", short_name(Py_TYPE(self)), list.get()));
    });
  });
}

// The tuple's own method of that name, with the same arguments.
PyObject* call_on_items(PyObject* self, const char* name, PyObject* arguments) {
  return py::enter([&] {
    const py::Owned method = py::checked(PyObject_GetAttrString(items_of(self).get(), name));
    return py::checked(PyObject_Call(method.get(), arguments, nullptr));
  });
}

PyObject* index(PyObject* self, PyObject* arguments) {
  return call_on_items(self, "index", arguments);
}

PyObject* count(PyObject* self, PyObject* arguments) {
  return call_on_items(self, "count", arguments);
}

PyObject* reduce(PyObject* self, PyObject*) {
  return py::enter([&] {
    const auto& sequence = as<Sequence>(self);
    py::Owned arguments = py::checked(PyTuple_Pack(2, sequence.items, sequence.cls));
    return rebuilt_by_of(Py_TYPE(self), std::move(arguments));
  });
}

PyObject* class_of(PyObject* self, void*) {
  return py::Owned::share(py::Borrowed(as<Sequence>(self).cls)).release();
}

PySequenceMethods sequence_slots() {
  PySequenceMethods slots = {};
  slots.sq_length = length;
  slots.sq_item = item;
  slots.sq_contains = contains;
  return slots;
}
PySequenceMethods as_sequence = sequence_slots();

PyMappingMethods mapping_slots() {
  PyMappingMethods slots = {};
  slots.mp_length = length;
  slots.mp_subscript = subscript;
  return slots;
}
PyMappingMethods as_mapping = mapping_slots();

PyMethodDef methods[] = {
    {"index", index, METH_VARARGS,
     "index($self, value, start=0, stop=sys.maxsize, /)\n--\n\nThe first position of a value; "
     "ValueError where\n"
     "there is none."},
    {"count", count, METH_VARARGS, "count($self, value, /)\n--\n\nHow often a value occurs."},
    {"__reduce__", reduce, METH_NOARGS, "How a result is pickled and copied."},
    {"__class_getitem__", generic_class, METH_CLASS | METH_O, kGenericDoc},
    {}};

}  // namespace

py::Owned make_sequence(PyTypeObject* type, py::Owned items, py::Owned cls) {
  auto* sequence = allocate<Sequence>(type);
  sequence->items = items.release();
  sequence->cls = cls.release();
  return finished(sequence);
}

py::Borrowed items_of(PyObject* sequence) { return py::Borrowed(as<Sequence>(sequence).items); }

py::Borrowed item_at(py::Borrowed tuple, std::size_t i) {
  return py::Borrowed(PyTuple_GET_ITEM(tuple.get(), static_cast<Py_ssize_t>(i)));
}

PyGetSetDef class_attribute() {
  return py::attribute("cls", class_of, nullptr, "What the messages were made with.");
}

PyTypeObject sequence_base(const char* name, const char* doc, PyGetSetDef* attributes) {
  PyTypeObject type = py::static_type(name, sizeof(Sequence));
  type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | VU_SEQUENCE;
  type.tp_doc = doc;
  type.tp_dealloc = destroy;
  type.tp_traverse = traverse;
  type.tp_repr = repr;
  type.tp_hash = hash;
  type.tp_richcompare = compare;
  type.tp_iter = iterate;
  type.tp_as_sequence = &as_sequence;
  type.tp_as_mapping = &as_mapping;
  type.tp_methods = methods;
  type.tp_getset = attributes;
  return type;
}

void register_sequence(PyTypeObject& type) {
  // Not by way of collections, which takes longer to import than all the platform.
  const py::Owned abc = py::checked(PyImport_ImportModule("_collections_abc"));
  const py::Owned sequence = py::checked(PyObject_GetAttrString(abc.get(), "Sequence"));
  py::checked(PyObject_CallMethod(sequence.get(), "register", "O", &type));
}

}  // namespace vu
