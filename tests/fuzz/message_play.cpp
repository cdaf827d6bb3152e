#include "message_play.h"

#include <google/protobuf/map_field.h>

#include <memory>
#include <unordered_map>

#include "interpreter.h"
#include "message_bytes.h"
#include "vu_platform.h"

// The name under which libprotobuf opens its map reflection.
namespace google::protobuf::python {

class MapReflectionFriend {
 public:
  static MapIterator begin(Message& message, const FieldDescriptor& field) {
    return message.GetReflection()->MapBegin(&message, &field);
  }
  static MapIterator end(Message& message, const FieldDescriptor& field) {
    return message.GetReflection()->MapEnd(&message, &field);
  }
};

}  // namespace google::protobuf::python

namespace vu::fuzz {

namespace {

namespace pb = google::protobuf;

MessagePlay* playing = nullptr;

const char* const kMethods[] = {
    "get_ptr", "HasField", "ClearField", "WhichOneof", "Clear", "ListFields", "IsInitialized",
    "ByteSize", "SerializeToString", "SerializePartialToString", "MergeFrom", "CopyFrom",
    "SetInParent", "ToJson", "FromJson", "__copy__", "__deepcopy__", "__reduce__", "__init__",
    // Of lists and maps.
    "append", "insert", "extend", "remove", "pop", "clear", "sort", "reverse", "index", "count",
    "add", "get_or_create", "get", "setdefault", "update", "popitem", "keys", "values", "items",
    "__iadd__", "__reversed__", "__contains__", "copy"};

// What is looked up once. Kept for good.
struct Known {
  PyObject* base;  // vu_message.Message
  PyObject* decode_error;
  PyObject* values;  // a list
  PyObject* descriptor;
  PyObject* fields;
  PyObject* name;
  PyObject* get_ptr;
  std::vector<PyObject*> methods;
  PyObject* parse;
  PyObject* merge;
  PyObject* from_string;
  std::unordered_map<const void*, std::vector<PyObject*>> names;  // of fields, by class
};

PyObject* interned(const char* text) { return PyUnicode_InternFromString(text); }

Known& known() {
  static auto* const all = [] {
    auto* const made = new Known();
    made->base = import_object("vu_message", "Message").release();
    made->decode_error = import_object("vu_message", "DecodeError").release();
    made->values = import_object("hostile", "VALUES").release();
    made->descriptor = interned("DESCRIPTOR");
    made->fields = interned("fields");
    made->name = interned("name");
    made->get_ptr = interned("get_ptr");
    made->parse = interned("ParseFromString");
    made->merge = interned("MergeFromString");
    made->from_string = interned("FromString");
    for (const char* const method : kMethods) made->methods.push_back(interned(method));
    return made;
  }();
  return *all;
}

bool is_message(PyObject* object) {
  return object != nullptr && PyObject_IsInstance(object, known().base) == 1;
}

// The names of the fields of a message class.
const std::vector<PyObject*>& names_of(PyTypeObject* cls) {
  std::vector<PyObject*>& names = known().names[cls];
  if (!names.empty()) return names;
  const py::Owned type =
      ended(PyObject_GetAttr(static_cast<PyObject*>(static_cast<void*>(cls)), known().descriptor));
  const py::Owned fields = ended(PyObject_GetAttr(type.get(), known().fields));
  const Py_ssize_t count = PyTuple_GET_SIZE(fields.get());
  for (Py_ssize_t i = 0; i < count; ++i) {
    py::Owned name = ended(PyObject_GetAttr(PyTuple_GET_ITEM(fields.get(), i), known().name));
    check(!name.is_null(), "a field without a name");
    names.push_back(name.release());
  }
  names.push_back(interned("no_such_field"));
  return names;
}

std::string text_of(const py::Owned& bytes) {
  check(!bytes.is_null() && PyBytes_Check(bytes.get()), "no bytes");
  return {PyBytes_AS_STRING(bytes.get()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.get()))};
}

// libprotobuf parses maps as lists of entries; makes them maps, with each key once and without
// what entries hold beside key and value.
void settle_maps(pb::Message& message) {
  using Maps = pb::python::MapReflectionFriend;
  const pb::Reflection& reflection = *message.GetReflection();
  std::vector<const pb::FieldDescriptor*> set;
  reflection.ListFields(message, &set);
  for (const pb::FieldDescriptor* const field : set) {
    if (field->cpp_type() != pb::FieldDescriptor::CPPTYPE_MESSAGE) continue;
    if (field->is_map()) {
      const bool has_messages = field->message_type()->map_value()->message_type() != nullptr;
      const pb::MapIterator end = Maps::end(message, *field);
      for (pb::MapIterator entry = Maps::begin(message, *field); entry != end; ++entry) {
        if (has_messages) settle_maps(*entry.MutableValueRef()->MutableMessageValue());
      }
    } else if (field->is_repeated()) {
      for (int i = 0; i < reflection.FieldSize(message, field); ++i) {
        settle_maps(*reflection.MutableRepeatedMessage(&message, field, i));
      }
    } else {
      settle_maps(*reflection.MutableMessage(&message, field));
    }
  }
}

void show(const char* what, const std::string& bytes) {
  std::fprintf(stderr, "%s:", what);
  for (const char c : bytes) {
    std::fprintf(stderr, " %02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
  }
  std::fprintf(stderr, "\n");
}

void check_same(const std::string& found, const std::string& wanted, const char* what) {
  if (found == wanted) return;
  show("found", found);
  show("wanted", wanted);
  fail(what);
}

py::Owned serialised(PyObject* message) {
  return ended(PyObject_CallMethod(message, "SerializePartialToString", "i", 1));
}

}  // namespace

MessagePlay::MessagePlay(Input& input, const std::vector<PyObject*>& classes)
    : in_(input), classes_(classes) {
  static PyMethodDef method = {"act", act, METH_NOARGS, nullptr};
  static bool told = false;
  if (!told) {
    told = true;
    const py::Owned module = py::Owned::steal(PyImport_ImportModule("hostile"));
    const py::Owned function = py::Owned::steal(PyCFunction_New(&method, nullptr));
    check(PyObject_SetAttrString(module.get(), "act", function.get()) == 0, "hostile.act");
  }
  playing = this;
}

MessagePlay::~MessagePlay() { playing = nullptr; }

// What the values that misbehave call.
PyObject* MessagePlay::act(PyObject*, PyObject*) {
  MessagePlay* const play = playing;
  if (play != nullptr && play->depth_ < kDeepest && !play->in_.empty()) {
    ++play->depth_;
    play->step();
    --play->depth_;
  }
  return py::Owned::share(py::Borrowed(Py_None)).release();
}

void MessagePlay::all() {
  while (!in_.empty()) step();
  for (const py::Owned& value : registers_) {
    if (is_message(value.get())) check_message(value.get());
  }
  for (py::Owned& value : registers_) value = py::Owned();
  for (const std::intptr_t address : addresses_) {
    check(vu_platform_message_is_live(address) == 0, "a message was not let go of");
  }
}

PyObject* MessagePlay::some_class() { return in_.pick_of(classes_); }
PyObject* MessagePlay::some_register() { return registers_[in_.pick(kRegisters)].get(); }

PyObject* MessagePlay::some_message() {
  const std::size_t first = in_.pick(kRegisters);
  for (std::size_t i = 0; i < kRegisters; ++i) {
    PyObject* const found = registers_[(first + i) % kRegisters].get();
    if (is_message(found)) return found;
  }
  return nullptr;
}

PyObject* MessagePlay::some_value() {
  const std::size_t which = in_.byte();
  PyObject* value = nullptr;
  if (which % 4 == 0) {
    value = registers_[which / 4 % kRegisters].get();
  } else {
    const auto count = static_cast<std::size_t>(PyList_GET_SIZE(known().values));
    value = PyList_GET_ITEM(known().values, static_cast<Py_ssize_t>(which % count));
  }
  return value == nullptr ? Py_None : value;
}

PyObject* MessagePlay::some_name(PyObject* message) {
  return in_.pick_of(names_of(Py_TYPE(message)));
}

void MessagePlay::put(py::Owned value) {
  // Numbers and the like are taken from the pool.
  if (value.is_null() || value.is_none() || PyLong_Check(value.get()) != 0) return;
  py::Owned& target = registers_[in_.pick(kRegisters)];
  target = std::move(value);
}

// What holds for every message at any time.
void MessagePlay::check_message(PyObject* message) {
  const py::Owned held = py::Owned::share(py::Borrowed(message));
  const py::Owned number = ended(PyObject_CallMethodNoArgs(message, known().get_ptr));
  check(!number.is_null(), "get_ptr failed");
  const std::intptr_t address = PyLong_AsSsize_t(number.get());
  check(vu_platform_message_is_live(address) != 0, "a message of a program is not live");
  addresses_.push_back(address);
  const auto& native = *reinterpret_cast<const pb::Message*>(address);
  const std::string bytes = text_of(serialised(message));
  check_same(bytes, bytes_of(native), "a message is serialised in another way");
  const py::Owned size = ended(PyObject_CallMethod(message, "ByteSize", nullptr));
  check(PyLong_AsSize_t(size.get()) == bytes.size(), "ByteSize");
  // Reading it again comes to the same, where it is not too deep for that.
  const std::unique_ptr<pb::Message> again(native.New());
  if (!again->ParsePartialFromString(bytes)) return;
  const py::Owned data = py::Owned::steal(
      PyBytes_FromStringAndSize(bytes.data(), static_cast<Py_ssize_t>(bytes.size())));
  const py::Owned read = ended(PyObject_CallMethodOneArg(
      reinterpret_cast<PyObject*>(Py_TYPE(message)), known().from_string, data.get()));
  check(!read.is_null(), "a serialised message cannot be read");
  check_same(text_of(serialised(read.get())), bytes, "a message changes where it is read");
}

// Bytes from outside: accepted where libprotobuf accepts them, with the same outcome.
void MessagePlay::parse() {
  PyObject* const message = some_message();
  if (message == nullptr) return;
  const py::Owned held = py::Owned::share(py::Borrowed(message));
  const std::size_t options = in_.byte();
  const std::string_view wire = options % 4 == 0 ? in_.rest() : in_.bytes(options / 4);
  const py::Owned data = py::Owned::steal(
      PyBytes_FromStringAndSize(wire.data(), static_cast<Py_ssize_t>(wire.size())));
  const py::Owned number = ended(PyObject_CallMethodNoArgs(message, known().get_ptr));
  const auto address = [&] { return PyLong_AsSsize_t(number.get()); };
  const auto& native = *reinterpret_cast<const pb::Message*>(address());
  addresses_.push_back(address());
  const std::unique_ptr<pb::Message> wanted(native.New());
  const std::string text(wire);
  const bool good = wanted->ParsePartialFromString(text);
  if (good) settle_maps(*wanted);
  const bool merge = options % 2 == 1;
  const std::string before = bytes_of(native);
  if (merge && good) {
    const std::unique_ptr<pb::Message> whole(native.New());
    whole->CopyFrom(native);
    whole->MergeFrom(*wanted);
    wanted->GetReflection()->Swap(wanted.get(), whole.get());
  }
  const std::string wanted_bytes = good ? bytes_of(*wanted) : before;
  PyObject* const result =
      PyObject_CallMethodOneArg(message, merge ? known().merge : known().parse, data.get());
  if (result == nullptr) {
    check(!good, "bytes were refused that are a message");
    check(PyErr_ExceptionMatches(known().decode_error) != 0, "another error than DecodeError");
  }
  check(ended(result).is_null() == !good, "bytes were accepted that are no message");
  check_same(text_of(serialised(message)), wanted_bytes, "bytes were read in another way");
}

void MessagePlay::call_method() {
  PyObject* const object = some_register();
  if (object == nullptr) return;
  const py::Owned held = py::Owned::share(py::Borrowed(object));
  PyObject* const name = in_.pick_of(known().methods);
  const std::size_t count = in_.pick(3);
  // A field's name is what many methods take.
  PyObject* first = count == 0 ? nullptr : some_value();
  if (count == 1 && is_message(object) && in_.flag()) first = some_name(object);
  const py::Owned one = py::Owned::share(py::Borrowed(first));
  const py::Owned two = py::Owned::share(py::Borrowed(count == 2 ? some_value() : nullptr));
  put(ended(PyObject_CallMethodObjArgs(object, name, one.get(), two.get(), nullptr)));
}

// A message from keyword values, or from an address.
void MessagePlay::construct() {
  PyObject* const cls = some_class();
  const std::size_t count = in_.pick(4);
  if (count == 3) {
    const py::Owned value = py::Owned::share(py::Borrowed(some_value()));
    return put(ended(PyObject_CallFunctionObjArgs(cls, value.get(), nullptr)));
  }
  const py::Owned keywords = py::Owned::steal(PyDict_New());
  const auto& names = names_of(static_cast<PyTypeObject*>(static_cast<void*>(cls)));
  for (std::size_t i = 0; i < count; ++i) {
    PyObject* const name = in_.pick_of(names);
    PyDict_SetItem(keywords.get(), name, some_value());
  }
  const py::Owned none = py::Owned::steal(PyTuple_New(0));
  put(ended(PyObject_Call(cls, none.get(), keywords.get())));
}

// Lists and maps.
void MessagePlay::item(int which) {
  PyObject* const object = some_register();
  if (object == nullptr) return;
  const py::Owned held = py::Owned::share(py::Borrowed(object));
  const py::Owned key = py::Owned::share(py::Borrowed(some_value()));
  if (which == 0) return put(ended(PyObject_GetItem(object, key.get())));
  if (which == 1) return ended(PyObject_DelItem(object, key.get()));
  const py::Owned value = py::Owned::share(py::Borrowed(some_value()));
  ended(PyObject_SetItem(object, key.get(), value.get()));
}

void MessagePlay::step() {
  const std::size_t what = in_.pick(18);
  switch (what) {
    case 0:
      return construct();
    case 1:
    case 2:
    case 3: {
      PyObject* const message = some_message();
      if (message == nullptr) return construct();
      const py::Owned held = py::Owned::share(py::Borrowed(message));
      PyObject* const name = some_name(message);
      if (what != 3) return put(ended(PyObject_GetAttr(message, name)));
      const py::Owned value = py::Owned::share(py::Borrowed(some_value()));
      return ended(PyObject_SetAttr(message, name, value.get()));
    }
    case 4:
    case 5:
      return parse();
    case 6:
    case 7:
    case 8:
      return call_method();
    case 9:
    case 10:
    case 11:
      return item(static_cast<int>(what) - 9);
    case 12: {
      PyObject* const message = some_message();
      if (message != nullptr) check_message(message);
      return;
    }
    case 13: {
      PyObject* const object = some_register();
      if (object == nullptr) return;
      const py::Owned held = py::Owned::share(py::Borrowed(object));
      const py::Owned other = py::Owned::share(py::Borrowed(some_value()));
      put(ended(PyObject_RichCompare(object, other.get(), static_cast<int>(in_.pick(6)))));
      return;
    }
    case 14: {
      PyObject* const object = some_register();
      if (object == nullptr) return;
      const py::Owned held = py::Owned::share(py::Borrowed(object));
      put(ended(PyObject_Repr(object)));
      return;
    }
    case 15: {
      PyObject* const object = some_register();
      if (object == nullptr) return;
      const py::Owned held = py::Owned::share(py::Borrowed(object));
      if (PyIter_Check(object) == 0) return put(ended(PyObject_GetIter(object)));
      PyObject* const next = PyIter_Next(object);
      if (next == nullptr) {
        PyErr_Clear();
        return;
      }
      return put(py::Owned::steal(next));
    }
    case 16: {
      PyObject* const object = some_register();
      if (object == nullptr) return;
      const py::Owned held = py::Owned::share(py::Borrowed(object));
      return put(ended(PySequence_List(object)));
    }
    default:
      registers_[in_.pick(kRegisters)] = py::Owned();
  }
}

}  // namespace vu::fuzz
