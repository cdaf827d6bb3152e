#include "map_view.h"

#include <utility>

#include "entries.h"
#include "message_class.h"
#include "python/module.h"

namespace vu {

namespace {

PyTypeObject scalars_type = py::static_type("vu_message.ScalarMap", sizeof(Node));
PyTypeObject messages_type = py::static_type("vu_message.MessageMap", sizeof(Node));

bool is_view(py::Borrowed object) {
  return Py_TYPE(object.get()) == &scalars_type || Py_TYPE(object.get()) == &messages_type;
}

// What a view refers to, read afresh each time: Python code may move it to another message.
struct View {
  PyObject* self;

  explicit View(PyObject* view) : self(view) {}
  MessageObject& message() const { return *static_cast<Node*>(self)->parent; }
  Field& field() const { return *static_cast<Node*>(self)->field; }
  Place place() const { return Place(*static_cast<Node*>(self)); }
  Key key(PyObject* value) const { return to_key(field(), place(), py::Borrowed(value)); }
  Element value(const Key& key, PyObject* value) const {
    return to_value(field(), place(), key, py::Borrowed(value));
  }
  std::vector<std::pair<Key, Element>> entries(PyObject* mapping) const {
    return to_entries(field(), place(), py::Borrowed(mapping));
  }
  py::Owned get(const Key& key) const { return get_entry(message(), field(), key); }
  bool has(const Key& key) const { return has_entry(message(), field(), key); }
};

py::Owned none() { return py::Owned::share(py::Borrowed(Py_None)); }

[[noreturn]] void raise_key_error(PyObject* key) {
  PyErr_SetObject(PyExc_KeyError, key);
  throw py::PythonError();
}

py::Owned key_list(const View& view) {
  const std::vector<Key> keys = sorted_keys(view.message(), view.field());
  py::Owned list = py::checked(PyList_New(static_cast<Py_ssize_t>(keys.size())));
  for (std::size_t i = 0; i < keys.size(); ++i) {
    PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i),
                    from_map_key(key_type(view.field()), keys[i]).release());
  }
  return list;
}

py::Owned dict_of(const View& view) {
  py::Owned dict = py::checked(PyDict_New());
  for (const Key& key : sorted_keys(view.message(), view.field())) {
    const py::Owned name = from_map_key(key_type(view.field()), key);
    const py::Owned value = view.get(key);
    py::checked(PyDict_SetItem(dict.get(), name.get(), value.get()));
  }
  return dict;
}

// ---- Slots

Py_ssize_t length(PyObject* self) {
  const View view(self);
  return entry_count(view.message(), view.field());
}

PyObject* subscript(PyObject* self, PyObject* key) {
  return py::enter([&] {
    const View view(self);
    const Key native = view.key(key);
    return get_or_make_entry(view.message(), view.field(), native);
  });
}

int assign_subscript(PyObject* self, PyObject* key, PyObject* value) {
  return py::enter_status([&] {
    const View view(self);
    const Key native = view.key(key);
    if (value == nullptr) {
      if (!remove_entry(view.message(), view.field(), native)) raise_key_error(key);
      return;
    }
    Element element = view.value(native, value);
    set_entry(view.message(), view.field(), native, std::move(element));
  });
}

int contains(PyObject* self, PyObject* key) {
  bool found = false;
  const int status = py::enter_status([&] {
    const View view(self);
    found = view.has(view.key(key));
  });
  return status < 0 ? status : found;
}

PyObject* iterate(PyObject* self) {
  return py::enter([&] { return py::checked(PyObject_GetIter(key_list(View(self)).get())); });
}

PyObject* compare(PyObject* self, PyObject* other, int operation) {
  return py::enter([&] {
    const bool mapping = PyDict_Check(other) || is_view(py::Borrowed(other));
    if (!mapping || (operation != Py_EQ && operation != Py_NE)) {
      return py::Owned::share(py::Borrowed(Py_NotImplemented));
    }
    const py::Owned left = dict_of(View(self));
    const py::Owned right =
        PyDict_Check(other) ? py::Owned::share(py::Borrowed(other)) : dict_of(View(other));
    return py::checked(PyObject_RichCompare(left.get(), right.get(), operation));
  });
}

PyObject* repr(PyObject* self) {
  return py::enter([&] {
    const View view(self);
    py::Owned parts = py::checked(PyList_New(0));
    for (const Key& key : sorted_keys(view.message(), view.field())) {
      const py::Owned name = from_map_key(key_type(view.field()), key);
      const py::Owned value = view.get(key);
      const py::Owned text = py::checked(PyUnicode_FromFormat("%R: %R", name.get(), value.get()));
      py::checked(PyList_Append(parts.get(), text.get()));
    }
    const py::Owned comma = py::checked(PyUnicode_FromString(", "));
    const py::Owned inside = py::checked(PyUnicode_Join(comma.get(), parts.get()));
    return py::checked(PyUnicode_FromFormat("{%U}", inside.get()));
  });
}

void dealloc(PyObject* self) {
  const py::Owned parent = leave(*static_cast<Node*>(self));
  Py_TYPE(self)->tp_free(self);
}

// ---- Methods

// collections.abc.NAME(self): a live view of keys, values or items.
PyObject* abc_view(PyObject* self, const char* name) {
  return py::enter([&] {
    const py::Owned abc = py::checked(PyImport_ImportModule("_collections_abc"));
    return py::checked(
        PyObject_CallMethod(abc.get(), const_cast<char*>(name), const_cast<char*>("O"), self));
  });
}

PyObject* keys(PyObject* self, PyObject*) { return abc_view(self, "KeysView"); }
PyObject* values(PyObject* self, PyObject*) { return abc_view(self, "ValuesView"); }
PyObject* items(PyObject* self, PyObject*) { return abc_view(self, "ItemsView"); }

struct KeyAndDefault {
  PyObject* key = nullptr;
  PyObject* fallback = nullptr;

  KeyAndDefault(PyObject* arguments, const char* format) {
    if (!PyArg_ParseTuple(arguments, format, &key, &fallback)) throw py::PythonError();
  }
};

PyObject* get(PyObject* self, PyObject* arguments) {
  return py::enter([&] {
    const KeyAndDefault in(arguments, "O|O:get");
    const View view(self);
    const Key key = view.key(in.key);
    if (view.has(key)) return view.get(key);
    return in.fallback == nullptr ? none() : py::Owned::share(py::Borrowed(in.fallback));
  });
}

PyObject* set_default(PyObject* self, PyObject* arguments) {
  return py::enter([&] {
    const KeyAndDefault in(arguments, "OO:setdefault");
    const View view(self);
    const Key key = view.key(in.key);
    if (!view.has(key)) {
      Element element = view.value(key, in.fallback);
      set_entry(view.message(), view.field(), key, std::move(element));
    }
    return view.get(key);
  });
}

PyObject* get_or_create(PyObject* self, PyObject* key) { return subscript(self, key); }

PyObject* pop(PyObject* self, PyObject* arguments) {
  return py::enter([&] {
    const KeyAndDefault in(arguments, "O|O:pop");
    const View view(self);
    const Key key = view.key(in.key);
    if (!view.has(key)) {
      if (in.fallback == nullptr) raise_key_error(in.key);
      return py::Owned::share(py::Borrowed(in.fallback));
    }
    py::Owned value = view.get(key);
    remove_entry(view.message(), view.field(), key);
    return value;
  });
}

PyObject* popitem(PyObject* self, PyObject*) {
  return py::enter([&] {
    const View view(self);
    const std::vector<Key> keys = sorted_keys(view.message(), view.field());
    if (keys.empty()) py::raise(PyExc_KeyError, "popitem(): map is empty");
    py::Owned name = from_map_key(key_type(view.field()), keys.back());
    py::Owned value = view.get(keys.back());
    remove_entry(view.message(), view.field(), keys.back());
    return py::checked(PyTuple_Pack(2, name.get(), value.get()));
  });
}

PyObject* clear_all(PyObject* self, PyObject*) {
  return py::enter([&] {
    const View view(self);
    for (const Key& key : sorted_keys(view.message(), view.field())) {
      remove_entry(view.message(), view.field(), key);
    }
    return none();
  });
}

void update_with(MessageObject& message, const Field& field,
                 std::vector<std::pair<Key, Element>>&& entries) {
  for (auto& [key, value] : entries) set_entry(message, field, key, std::move(value));
}

PyObject* update(PyObject* self, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    PyObject* mapping = nullptr;
    if (!PyArg_ParseTuple(arguments, "|O:update", &mapping)) throw py::PythonError();
    const View view(self);
    std::vector<std::pair<Key, Element>> entries;
    if (mapping != nullptr) entries = view.entries(mapping);
    if (keywords != nullptr) {
      for (auto& entry : view.entries(keywords)) entries.push_back(std::move(entry));
    }
    update_with(view.message(), view.field(), std::move(entries));
    return none();
  });
}

PyObject* merge_from(PyObject* self, PyObject* mapping) {
  return py::enter([&] {
    const View view(self);
    auto entries = view.entries(mapping);
    update_with(view.message(), view.field(), std::move(entries));
    return none();
  });
}

PyObject* reduce(PyObject* self, PyObject*) {
  return py::enter([&] {
    return py::checked(Py_BuildValue("O(N)", &PyDict_Type, dict_of(View(self)).release()));
  });
}

PyMethodDef methods[] = {
    {"get_or_create", get_or_create, METH_O,
     "get_or_create(key)\n--\n\nThe value of key, made where there is none; as [key]."},
    {"get", get, METH_VARARGS, "get(key, default=None)\n--\n\nThe value of key, or default."},
    {"keys", keys, METH_NOARGS, "keys()\n--\n\nThe keys, ascending."},
    {"values", values, METH_NOARGS, "values()\n--\n\nThe values, by ascending key."},
    {"items", items, METH_NOARGS, "items()\n--\n\nPairs of key and value, by ascending key."},
    {"setdefault", set_default, METH_VARARGS,
     "setdefault(key, default)\n--\n\nThe value of key, which is set to default if absent."},
    {"pop", pop, METH_VARARGS, "pop(key[, default])\n--\n\nRemoves key and returns its value."},
    {"popitem", popitem, METH_NOARGS, "popitem()\n--\n\nRemoves and returns the last entry."},
    {"clear", clear_all, METH_NOARGS, "clear()\n--\n\nRemoves all entries."},
    {"update", py::method_pointer(update), METH_VARARGS | METH_KEYWORDS,
     "update(mapping, **entries)\n--\n\nSets all these entries, or none."},
    {"MergeFrom", merge_from, METH_O, "MergeFrom(mapping)\n--\n\nThe same as update."},
    {"__reduce__", reduce, METH_NOARGS, "Copies and pickles of a view are dicts."},
    {nullptr, nullptr, 0, nullptr}};

PySequenceMethods sequence{};
PyMappingMethods mapping{};

void add_type(py::Borrowed module, PyTypeObject& type, const char* name) {
  type.tp_flags = Py_TPFLAGS_DEFAULT | VU_MAPPING;
  type.tp_dealloc = dealloc;
  type.tp_repr = repr;
  type.tp_hash = PyObject_HashNotImplemented;
  type.tp_richcompare = compare;
  type.tp_iter = iterate;
  type.tp_as_sequence = &sequence;
  type.tp_as_mapping = &mapping;
  type.tp_methods = methods;
  py::checked(PyType_Ready(&type));
  const py::Borrowed object(reinterpret_cast<PyObject*>(&type));
  py::add_to_module(module, name, object);
  const py::Owned abc = py::checked(PyImport_ImportModule("_collections_abc"));
  const py::Owned base = py::checked(PyObject_GetAttrString(abc.get(), "MutableMapping"));
  py::checked(PyObject_CallMethod(base.get(), const_cast<char*>("register"), const_cast<char*>("O"),
                                  object.get()));
}

}  // namespace

py::Owned map_view_of(MessageObject& message, Field& field) {
  if (field.message) class_of(element_info(field));
  if (Node* held = find_part(message, field)) return py::Owned::share(py::Borrowed(held));
  PyTypeObject& type = field.message ? messages_type : scalars_type;
  py::Owned object = py::checked(PyType_GenericAlloc(&type, 0));
  attach_view(message, field, *static_cast<Node*>(object.get()));
  return object;
}

void assign_map(MessageObject& message, Field& field, const Place& place, py::Borrowed values) {
  if (is_view(values)) {
    const View view(values.get());
    if (&view.message() == &message && &view.field() == &field) return;  // to itself
  }
  auto entries = to_entries(field, place, values);
  writable(message);
  for (const Key& key : sorted_keys(message, field)) remove_entry(message, field, key);
  update_with(message, field, std::move(entries));
}

void add_map_types(py::Borrowed module) {
  sequence.sq_contains = contains;
  mapping.mp_length = length;
  mapping.mp_subscript = subscript;
  mapping.mp_ass_subscript = assign_subscript;
  scalars_type.tp_doc = "A map field with plain values, as a dict.";
  add_type(module, scalars_type, "ScalarMap");
  messages_type.tp_doc = "A map field of messages, as a dict; it keeps copies.";
  add_type(module, messages_type, "MessageMap");
}

}  // namespace vu
