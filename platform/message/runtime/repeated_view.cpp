#include "repeated_view.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "elements.h"
#include "field.h"
#include "message_class.h"
#include "python/module.h"

namespace vu {

namespace {

PyTypeObject scalars_type = py::static_type("vu_message.RepeatedScalars", sizeof(Node));
PyTypeObject messages_type = py::static_type("vu_message.RepeatedMessages", sizeof(Node));

bool is_view(py::Borrowed object) {
  return Py_TYPE(object.get()) == &scalars_type || Py_TYPE(object.get()) == &messages_type;
}

[[noreturn]] void raise_out_of_range() { py::raise(PyExc_IndexError, "list index out of range"); }

// What a view refers to. Python code that runs in between (__index__, __eq__, a key
// function) may move the view to another message and change the number of elements, so
// both are read afresh each time.
struct View {
  PyObject* self;

  explicit View(PyObject* view) : self(view) {}

  MessageObject& message() const { return *static_cast<Node*>(self)->parent; }
  Field& field() const { return *static_cast<Node*>(self)->field; }
  Place place() const { return Place(*static_cast<Node*>(self)); }
  int count() const { return element_count(message(), field()); }
  py::Owned at(int index) const {
    if (index >= count()) raise_out_of_range();
    return get_element(message(), field(), index);
  }
  void retain(const std::vector<bool>& keep) const { retain_elements(message(), field(), keep); }
  void remove(int index) const {
    std::vector<bool> keep(static_cast<std::size_t>(count()), true);
    keep.at(static_cast<std::size_t>(index)) = false;
    retain(keep);
  }
};

py::Owned list_of(PyObject* self) {
  const View view(self);
  if (view.field().message) return py::checked(PySequence_List(self));
  return get_scalars(*view.message().native, *view.field().descriptor);
}

// ---- Positions

int position(const View& view, py::Borrowed index) {
  Py_ssize_t value = PyNumber_AsSsize_t(index.get(), PyExc_IndexError);
  if (value == -1 && PyErr_Occurred() != nullptr) throw py::PythonError();
  const int count = view.count();
  if (value < 0) value += count;
  if (value < 0 || value >= count) raise_out_of_range();
  return static_cast<int>(value);
}

// A position as insert() and index() take them: cut off at the ends.
int clamped(Py_ssize_t value, int count) {
  if (value < 0) value = std::max<Py_ssize_t>(value + count, 0);
  return static_cast<int>(std::min<Py_ssize_t>(value, count));
}

struct Slice {
  Py_ssize_t start, stop, step, length;

  Slice(const View& view, PyObject* slice) {
    const int count = view.count();
    py::checked(PySlice_GetIndicesEx(slice, count, &start, &stop, &step, &length));
    // cppcheck-suppress knownConditionTrueFalse; the indices may be objects with code of their own
    if (view.count() != count) py::raise(PyExc_ValueError, "list modified by its index");
  }
  int at(Py_ssize_t i) const { return static_cast<int>(start + i * step); }
};

void remove_slice(const View& view, const Slice& slice) {
  std::vector<bool> keep(static_cast<std::size_t>(view.count()), true);
  for (Py_ssize_t i = 0; i < slice.length; ++i) keep[static_cast<std::size_t>(slice.at(i))] = false;
  view.retain(keep);
}

void assign_slice(const View& view, PyObject* indices, py::Borrowed values) {
  std::vector<Element> elements = to_elements(view.field(), view.place(), values);
  const Slice slice(view, indices);  // now: converting may have changed the count
  if (slice.step == 1) {
    remove_slice(view, slice);
    insert_elements(view.message(), view.field(), slice.at(0), std::move(elements));
    return;
  }
  if (static_cast<Py_ssize_t>(elements.size()) != slice.length) {
    py::raise(PyExc_ValueError,
              "attempt to assign sequence of size %zd to extended slice of size %zd",
              static_cast<Py_ssize_t>(elements.size()), slice.length);
  }
  for (Py_ssize_t i = 0; i < slice.length; ++i) {
    set_element(view.message(), view.field(), slice.at(i),
                std::move(elements[static_cast<std::size_t>(i)]));
  }
}

// The first position from `start` to before `stop` with an equal element, or -1.
int find(const View& view, py::Borrowed wanted, int start, int stop) {
  for (int i = start; i < std::min(stop, view.count()); ++i) {
    const py::Owned element = view.at(i);
    const int equal = py::checked(PyObject_RichCompareBool(element.get(), wanted.get(), Py_EQ));
    if (equal != 0 && i < view.count()) return i;
  }
  return -1;
}

// ---- Slots

Py_ssize_t length(PyObject* self) { return View(self).count(); }

PyObject* item(PyObject* self, Py_ssize_t index) {
  const View view(self);
  if (index < 0 || index >= view.count()) {  // how every loop ends: not worth a throw
    PyErr_SetString(PyExc_IndexError, "list index out of range");
    return nullptr;
  }
  return py::enter(
      [&] { return get_element(view.message(), view.field(), static_cast<int>(index)); });
}

// Over the elements that there are now; messages are followed one by one.
PyObject* iterate(PyObject* self) {
  if (View(self).field().message) return PySeqIter_New(self);
  return py::enter([&] { return py::checked(PyObject_GetIter(list_of(self).get())); });
}

int contains(PyObject* self, PyObject* wanted) {
  int found = -1;
  const int status = py::enter_status([&] {
    const View view(self);
    found = find(view, py::Borrowed(wanted), 0, view.count());
  });
  return status < 0 ? status : found >= 0;
}

PyObject* subscript(PyObject* self, PyObject* index) {
  return py::enter([&] {
    const View view(self);
    if (!PySlice_Check(index)) return view.at(position(view, py::Borrowed(index)));
    const Slice slice(view, index);
    py::Owned list = py::checked(PyList_New(slice.length));
    for (Py_ssize_t i = 0; i < slice.length; ++i) {
      PyList_SET_ITEM(list.get(), i, view.at(slice.at(i)).release());
    }
    return list;
  });
}

int assign_subscript(PyObject* self, PyObject* index, PyObject* value) {
  return py::enter_status([&] {
    const View view(self);
    if (PySlice_Check(index)) {
      if (value != nullptr) {
        assign_slice(view, index, py::Borrowed(value));
      } else {
        remove_slice(view, Slice(view, index));
      }
      return;
    }
    if (value != nullptr) {
      const int at = position(view, py::Borrowed(index));
      Element element = to_element(view.field(), view.place().element(at), py::Borrowed(value));
      if (at >= view.count()) raise_out_of_range();  // converting may have changed the count
      set_element(view.message(), view.field(), at, std::move(element));
      return;
    }
    view.remove(position(view, py::Borrowed(index)));
  });
}

PyObject* compare(PyObject* self, PyObject* other, int operation) {
  return py::enter([&] {
    const bool list = PyList_Check(other) || PyTuple_Check(other) || is_view(py::Borrowed(other));
    if (!list || (operation != Py_EQ && operation != Py_NE)) {
      return py::Owned::share(py::Borrowed(Py_NotImplemented));
    }
    const py::Owned left = list_of(self);
    const py::Owned right = py::checked(PySequence_List(other));
    return py::checked(PyObject_RichCompare(left.get(), right.get(), operation));
  });
}

PyObject* repr(PyObject* self) {
  return py::enter([&] { return py::checked(PyObject_Repr(list_of(self).get())); });
}

PyObject* concatenate(PyObject* self, PyObject* other) {
  return py::enter([&] {
    const py::Owned left = list_of(self);
    const py::Owned right = py::checked(PySequence_List(other));
    return py::checked(PySequence_Concat(left.get(), right.get()));
  });
}

void dealloc(PyObject* self) {
  const py::Owned parent = leave(*static_cast<Node*>(self));
  Py_TYPE(self)->tp_free(self);
}

// ---- Methods

py::Owned none() { return py::Owned::share(py::Borrowed(Py_None)); }

PyObject* append(PyObject* self, PyObject* value) {
  return py::enter([&] {
    const View view(self);
    const Place place = view.place().element(view.count());
    Element element = to_element(view.field(), place, py::Borrowed(value));
    add_element(view.message(), view.field(), std::move(element));
    return none();
  });
}

void extend_with(PyObject* self, py::Borrowed values) {
  const View view(self);
  std::vector<Element> elements = to_elements(view.field(), view.place(), values);
  insert_elements(view.message(), view.field(), view.count(), std::move(elements));
}

PyObject* extend(PyObject* self, PyObject* values) {
  return py::enter([&] {
    extend_with(self, py::Borrowed(values));
    return none();
  });
}

PyObject* inplace_concatenate(PyObject* self, PyObject* values) {
  return py::enter([&] {
    extend_with(self, py::Borrowed(values));
    return py::Owned::share(py::Borrowed(self));
  });
}

PyObject* insert(PyObject* self, PyObject* arguments) {
  return py::enter([&] {
    Py_ssize_t index = 0;
    PyObject* value = nullptr;
    if (!PyArg_ParseTuple(arguments, "nO:insert", &index, &value)) throw py::PythonError();
    const View view(self);
    const Place place = view.place().element(clamped(index, view.count()));
    std::vector<Element> elements;
    elements.push_back(to_element(view.field(), place, py::Borrowed(value)));
    insert_elements(view.message(), view.field(), clamped(index, view.count()),
                    std::move(elements));
    return none();
  });
}

PyObject* pop(PyObject* self, PyObject* arguments) {
  return py::enter([&] {
    PyObject* index = nullptr;
    if (!PyArg_ParseTuple(arguments, "|O:pop", &index)) throw py::PythonError();
    const View view(self);
    if (view.count() == 0) py::raise(PyExc_IndexError, "pop from empty list");
    const int at = index == nullptr ? view.count() - 1 : position(view, py::Borrowed(index));
    py::Owned element = view.at(at);
    view.remove(at);
    return element;
  });
}

PyObject* remove(PyObject* self, PyObject* value) {
  return py::enter([&] {
    const View view(self);
    const int at = find(view, py::Borrowed(value), 0, view.count());
    if (at < 0) py::raise(PyExc_ValueError, "%R is not in the list", value);
    view.remove(at);
    return none();
  });
}

PyObject* index_of(PyObject* self, PyObject* arguments) {
  return py::enter([&] {
    PyObject* value = nullptr;
    Py_ssize_t start = 0;
    Py_ssize_t stop = PY_SSIZE_T_MAX;
    if (!PyArg_ParseTuple(arguments, "O|nn:index", &value, &start, &stop)) throw py::PythonError();
    const View view(self);
    const int count = view.count();
    const int at = find(view, py::Borrowed(value), clamped(start, count), clamped(stop, count));
    if (at < 0) py::raise(PyExc_ValueError, "%R is not in the list", value);
    return py::checked(PyLong_FromLong(at));
  });
}

PyObject* count(PyObject* self, PyObject* value) {
  return py::enter([&] {
    const View view(self);
    const int stop = view.count();
    long found = 0;
    for (int at = find(view, py::Borrowed(value), 0, stop); at >= 0;
         at = find(view, py::Borrowed(value), at + 1, stop)) {
      ++found;
    }
    return py::checked(PyLong_FromLong(found));
  });
}

PyObject* clear_all(PyObject* self, PyObject*) {
  return py::enter([&] {
    const View view(self);
    view.retain(std::vector<bool>(static_cast<std::size_t>(view.count()), false));
    return none();
  });
}

PyObject* reverse(PyObject* self, PyObject*) {
  return py::enter([&] {
    const View view(self);
    reverse_elements(view.message(), view.field(), 0, view.count());
    return none();
  });
}

// Puts held wrappers of all elements of the field into the order of `sorted`.
void arrange(const View& view, py::Borrowed sorted) {
  const int count = view.count();
  std::unordered_map<const NativeMessage*, int> places;
  for (int i = 0; i < count; ++i) {
    places[&field_message(view.message(), view.field(), i)] = i;
  }
  if (PyList_GET_SIZE(sorted.get()) != count) {
    py::raise(PyExc_ValueError, "list modified during sort");
  }
  for (int i = 0; i < count; ++i) {
    auto& wanted = *static_cast<MessageObject*>(PyList_GET_ITEM(sorted.get(), i));
    const auto place = places.find(wanted.native);
    if (place == places.end()) py::raise(PyExc_ValueError, "list modified during sort");
    const int from = place->second;
    if (from == i) continue;
    places[&field_message(view.message(), view.field(), i)] = from;
    view.field().reflection->SwapElements(view.message().native, view.field().descriptor, i, from);
    place->second = i;
  }
}

PyObject* sort(PyObject* self, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    const View view(self);
    const py::Owned list = list_of(self);
    const py::Owned method = py::checked(PyObject_GetAttrString(list.get(), "sort"));
    py::checked(PyObject_Call(method.get(), arguments, keywords));
    if (view.field().message) {
      arrange(view, list);
    } else {
      assign_repeated(view.message(), view.field(), view.place(), list);
    }
    return none();
  });
}

PyObject* reduce(PyObject* self, PyObject*) {
  return py::enter(
      [&] { return py::checked(Py_BuildValue("O(N)", &PyList_Type, list_of(self).release())); });
}

PyObject* add(PyObject* self, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    if (PyTuple_GET_SIZE(arguments) != 0) {
      py::raise(PyExc_TypeError, "add() takes keyword arguments only");
    }
    const View view(self);
    check_depth(view.message(), view.field());
    const Place place = view.place().element(view.count());
    Element element{{}, native_of(element_info(view.field()), place, py::Borrowed(keywords))};
    add_element(view.message(), view.field(), std::move(element));
    return view.at(view.count() - 1);
  });
}

// `add` stands first: scalars have all but it.
PyMethodDef methods[] = {
    {"add", py::method_pointer(add), METH_VARARGS | METH_KEYWORDS,
     "add(**fields)\n--\n\nAppends a new message with these fields and returns it."},
    {"append", append, METH_O, "append(value)\n--\n\nAppends a value; a message is copied."},
    {"extend", extend, METH_O, "extend(values)\n--\n\nAppends all of an iterable, or nothing."},
    {"MergeFrom", extend, METH_O, "MergeFrom(values)\n--\n\nThe same as extend."},
    {"insert", insert, METH_VARARGS, "insert(index, value)\n--\n\nInserts before index."},
    {"pop", pop, METH_VARARGS, "pop(index=-1)\n--\n\nRemoves an element and returns it."},
    {"remove", remove, METH_O, "remove(value)\n--\n\nRemoves the first equal element."},
    {"index", index_of, METH_VARARGS,
     "index(value, start=0, stop=None)\n--\n\nThe position of the first equal element."},
    {"count", count, METH_O, "count(value)\n--\n\nHow many elements are equal."},
    {"clear", clear_all, METH_NOARGS, "clear()\n--\n\nRemoves all elements."},
    {"reverse", reverse, METH_NOARGS, "reverse()\n--\n\nReverses the order in place."},
    {"sort", py::method_pointer(sort), METH_VARARGS | METH_KEYWORDS,
     "sort(*, key=None, reverse=False)\n--\n\nSorts in place."},
    {"__reduce__", reduce, METH_NOARGS, "Copies and pickles of a view are lists."},
    {nullptr, nullptr, 0, nullptr}};

PySequenceMethods sequence{};
PyMappingMethods mapping{};

void add_type(py::Borrowed module, PyTypeObject& type, const char* name) {
  type.tp_flags = Py_TPFLAGS_DEFAULT | VU_SEQUENCE;
  type.tp_dealloc = dealloc;
  type.tp_repr = repr;
  type.tp_hash = PyObject_HashNotImplemented;
  type.tp_richcompare = compare;
  type.tp_iter = iterate;
  type.tp_as_sequence = &sequence;
  type.tp_as_mapping = &mapping;
  py::checked(PyType_Ready(&type));
  const py::Borrowed object(reinterpret_cast<PyObject*>(&type));
  py::add_to_module(module, name, object);
  // Not by way of collections, which takes longer to import than all the platform.
  const py::Owned abc = py::checked(PyImport_ImportModule("_collections_abc"));
  const py::Owned base = py::checked(PyObject_GetAttrString(abc.get(), "MutableSequence"));
  py::checked(PyObject_CallMethod(base.get(), const_cast<char*>("register"), const_cast<char*>("O"),
                                  object.get()));
}

}  // namespace

py::Owned repeated_view_of(MessageObject& message, Field& field) {
  if (field.message) class_of(element_info(field));
  if (Node* held = find_part(message, field)) return py::Owned::share(py::Borrowed(held));
  PyTypeObject& type = field.message ? messages_type : scalars_type;
  py::Owned object = py::checked(PyType_GenericAlloc(&type, 0));
  attach_view(message, field, *static_cast<Node*>(object.get()));
  return object;
}

void assign_repeated(MessageObject& message, Field& field, const Place& place,
                     py::Borrowed values) {
  if (is_view(values)) {
    const View view(values.get());
    if (&view.message() == &message && &view.field() == &field) return;  // to itself
  }
  std::vector<Element> elements = to_elements(field, place, values);
  retain_elements(
      message, field,
      std::vector<bool>(static_cast<std::size_t>(element_count(message, field)), false));
  for (Element& element : elements) add_element(message, field, std::move(element));
}

void add_repeated_types(py::Borrowed module) {
  sequence.sq_length = length;
  sequence.sq_item = item;
  sequence.sq_contains = contains;
  sequence.sq_concat = concatenate;
  sequence.sq_inplace_concat = inplace_concatenate;
  mapping.mp_length = length;
  mapping.mp_subscript = subscript;
  mapping.mp_ass_subscript = assign_subscript;
  scalars_type.tp_doc = "A repeated field of numbers, strings or bytes, as a list.";
  scalars_type.tp_methods = methods + 1;
  add_type(module, scalars_type, "RepeatedScalars");
  messages_type.tp_doc = "A repeated field of messages, as a list; it keeps copies.";
  messages_type.tp_methods = methods;
  add_type(module, messages_type, "RepeatedMessages");
}

}  // namespace vu
