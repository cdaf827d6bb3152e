// The methods and slots of vu_message.Message.
#include "message.h"

#include <utility>

#include "equality.h"
#include "errors.h"
#include "field.h"
#include "json.h"
#include "message_bytes.h"
#include "message_class.h"
#include "native_map.h"
#include "pickle.h"
#include "text.h"
#include "vu_platform.h"

namespace vu {

namespace pb = google::protobuf;

namespace {

MessageObject& self_message(PyObject* self) { return *static_cast<MessageObject*>(self); }

py::Owned none() { return py::Owned::share(py::Borrowed(Py_None)); }

// ---- Construction

PyObject* new_empty(PyTypeObject* type, PyObject* /*arguments*/, PyObject* /*keywords*/) {
  return py::enter([&] { return new_message(type, new_native(concrete_info(type))); });
}

// A message of another pool of descriptors, by way of its bytes.
std::unique_ptr<NativeMessage> translated(const MessageInfo& info, const NativeMessage& from) {
  std::unique_ptr<NativeMessage> copy = new_native(info);
  copy->ParsePartialFromString(from.SerializePartialAsString());
  settle_maps(info, *copy);
  return copy;
}

// Whether messages of the type of `from` are of that type, in the same pool or not.
// TypeError where they are not.
bool is_same_pool(const MessageInfo& info, py::Borrowed address, const NativeMessage& from) {
  const pb::Descriptor* const type = from.GetDescriptor();
  if (type == info.descriptor) return true;
  if (type->full_name() != info.descriptor->full_name()) {
    py::raise(PyExc_TypeError, "%s: the message at address %R is a %s", info.name(), address.get(),
              type->full_name().c_str());
  }
  return false;
}

// The message that is being delivered at an address, or a copy of another one that is live.
std::unique_ptr<NativeMessage> from_address(const MessageInfo& info, py::Borrowed value) {
  if (!PyIndex_Check(value.get())) {
    py::raise(PyExc_TypeError,
              "%s: expected the address of a message or keyword values, got %.200s", info.name(),
              Py_TYPE(value.get())->tp_name);
  }
  const Py_ssize_t address = PyNumber_AsSsize_t(value.get(), nullptr);
  if (address == -1 && PyErr_Occurred() != nullptr) throw py::PythonError();
  std::intptr_t taken = 0;
  if (vu_platform_message_take(address, &taken) == VU_MOM_NO_MEMORY) throw std::bad_alloc();
  if (taken != 0) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): addresses come as integers
    std::unique_ptr<NativeMessage> message(reinterpret_cast<NativeMessage*>(taken));
    if (!is_same_pool(info, value, *message)) return translated(info, *message);
    info.delivered = true;
    return message;
  }
  if (vu_platform_message_is_live(address) == 0) {
    py::raise(PyExc_ValueError, "%s: no live message is at address %R", info.name(), value.get());
  }
  // NOLINTNEXTLINE(performance-no-int-to-ptr): addresses come as integers
  const auto& from = *reinterpret_cast<const NativeMessage*>(address);
  return is_same_pool(info, value, from) ? copy_native(info, from) : translated(info, from);
}

void check_arguments(const MessageInfo& info, Py_ssize_t positional, bool any_keywords) {
  if (positional > 1 || (positional == 1 && any_keywords)) {
    py::raise(PyExc_TypeError, "%s takes one address or keyword values", info.name());
  }
}

int init(PyObject* self, PyObject* arguments, PyObject* keywords) {
  return py::enter_status([&] {
    MessageObject& message = self_message(self);
    const bool any_keywords = keywords != nullptr && PyDict_Size(keywords) != 0;
    const Py_ssize_t count = PyTuple_GET_SIZE(arguments);
    check_arguments(*message.info, count, any_keywords);
    if (count == 1) {
      const py::Borrowed address(PyTuple_GET_ITEM(arguments, 0));
      replace_contents(message, from_address(*message.info, address));
    }
    if (any_keywords) set_fields(message, py::Borrowed(keywords));
  });
}

}  // namespace

PyObject* call_class(PyObject* cls, PyObject* const* arguments, std::size_t count,
                     PyObject* names) {
  auto* const type = reinterpret_cast<PyTypeObject*>(cls);
  const MessageInfo* const info = bound_info(type);
  if (info == nullptr || type->tp_new != new_empty || type->tp_init != init) {
    return py::call_type_slots(cls, arguments, count, names);  // a subclass has its own
  }
  return py::enter([&] {
    const Py_ssize_t positional = py::vector_count(count);
    const Py_ssize_t named = names == nullptr ? 0 : PyTuple_GET_SIZE(names);
    check_arguments(*info, positional, named != 0);
    if (positional == 1) {
      std::unique_ptr<NativeMessage> native = from_address(*info, py::Borrowed(arguments[0]));
      settle_maps(*info, *native);
      return new_message(type, std::move(native));
    }
    py::Owned self = new_message(type, new_native(*info));
    for (Py_ssize_t i = 0; i < named; ++i) {
      const py::Borrowed name(PyTuple_GET_ITEM(names, i));
      set_named(self_message(self.get()), name, py::Borrowed(arguments[i]));
    }
    return self;
  });
}

namespace {

// ---- Arguments

// Another message of the same type. TypeError.
MessageObject& same_type(const MessageObject& message, PyObject* other) {
  if (!is_message(py::Borrowed(other)) || self_message(other).info != message.info) {
    py::raise(PyExc_TypeError, "%s: expected %s, got %.200s", path_of(message).c_str(),
              message.info->name(), Py_TYPE(other)->tp_name);
  }
  return self_message(other);
}

// A field for which HasField has an answer, or a oneof (null with its name).
struct Named {
  Field* field = nullptr;
  const pb::OneofDescriptor* oneof = nullptr;
};

const pb::OneofDescriptor* find_oneof(const MessageInfo& info, PyObject* name) {
  if (!PyUnicode_Check(name)) return nullptr;
  const char* text = PyUnicode_AsUTF8(name);
  if (text == nullptr) throw py::PythonError();
  const pb::OneofDescriptor* oneof = info.descriptor->FindOneofByName(text);
  return oneof == nullptr || oneof->is_synthetic() ? nullptr : oneof;
}

Named field_or_oneof(const MessageInfo& info, PyObject* name) {
  Named named;
  named.oneof = find_oneof(info, name);
  if (named.oneof == nullptr) named.field = &find_field(info, py::Borrowed(name));
  return named;
}

// ---- Presence

PyObject* has_field(PyObject* self, PyObject* name) {
  return py::enter([&] {
    const MessageObject& message = self_message(self);
    const pb::Reflection& reflection = *message.info->reflection;
    const Named named = field_or_oneof(*message.info, name);
    if (named.oneof != nullptr) {
      return py::checked(PyBool_FromLong(reflection.HasOneof(*message.native, named.oneof)));
    }
    if (!named.field->descriptor->has_presence()) {
      py::raise(PyExc_ValueError, "%s is %s: it has no presence",
                named.field->descriptor->full_name().c_str(),
                named.field->repeated ? "repeated" : "no optional field");
    }
    return py::checked(
        PyBool_FromLong(reflection.HasField(*message.native, named.field->descriptor)));
  });
}

PyObject* clear_named(PyObject* self, PyObject* name) {
  return py::enter([&] {
    MessageObject& message = self_message(self);
    const Named named = field_or_oneof(*message.info, name);
    if (named.field != nullptr) {
      clear_field(message, *named.field);
      return none();
    }
    const pb::FieldDescriptor* member =
        message.info->reflection->GetOneofFieldDescriptor(*message.native, named.oneof);
    if (member != nullptr) clear_field(message, message.info->field(*member));
    return none();
  });
}

PyObject* which_oneof(PyObject* self, PyObject* name) {
  return py::enter([&] {
    const MessageObject& message = self_message(self);
    const pb::OneofDescriptor* oneof = find_oneof(*message.info, name);
    if (oneof == nullptr) {
      py::raise(PyExc_ValueError, "%s has no oneof %R", message.info->name(), name);
    }
    const pb::FieldDescriptor* member =
        message.info->reflection->GetOneofFieldDescriptor(*message.native, oneof);
    if (member == nullptr) return none();
    return py::Owned::share(py::Borrowed(message.info->field(*member).name));
  });
}

PyObject* clear_all(PyObject* self, PyObject*) {
  return py::enter([&] {
    clear(self_message(self));
    return none();
  });
}

PyObject* list_fields(PyObject* self, PyObject*) {
  return py::enter([&] {
    MessageObject& message = self_message(self);
    std::vector<const pb::FieldDescriptor*> set;
    message.info->reflection->ListFields(*message.native, &set);
    py::Owned list = py::checked(PyList_New(0));
    for (const pb::FieldDescriptor* descriptor : set) {
      if (descriptor->is_extension()) continue;
      Field& field = message.info->field(*descriptor);
      const py::Owned value = get_field(message, field);
      const py::Owned pair =
          py::checked(PyTuple_Pack(2, static_cast<PyObject*>(&field), value.get()));
      py::checked(PyList_Append(list.get(), pair.get()));
    }
    return list;
  });
}

PyObject* is_initialized(PyObject* self, PyObject*) {
  return PyBool_FromLong(self_message(self).native->IsInitialized());
}

// ---- Bytes

bool deterministic_argument(PyObject* arguments, PyObject* keywords, const char* format) {
  if (PyTuple_GET_SIZE(arguments) == 0 && keywords == nullptr) return false;
  static const char* names[] = {"deterministic", nullptr};
  int deterministic = 0;
  if (!PyArg_ParseTupleAndKeywords(arguments, keywords, format, const_cast<char**>(names),
                                   &deterministic)) {
    throw py::PythonError();
  }
  return deterministic != 0;
}

PyObject* serialize(PyObject* self, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    const bool deterministic = deterministic_argument(arguments, keywords, "|p:SerializeToString");
    const MessageObject& message = self_message(self);
    if (message.info->may_lack && !message.native->IsInitialized()) {
      py::raise(encode_error, "%s: required fields are not set: %s", message.info->name(),
                message.native->InitializationErrorString().c_str());
    }
    return serialized(message, deterministic);
  });
}

PyObject* serialize_partial(PyObject* self, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    const bool deterministic =
        deterministic_argument(arguments, keywords, "|p:SerializePartialToString");
    return serialized(self_message(self), deterministic);
  });
}

PyObject* byte_size(PyObject* self, PyObject*) {
  return PyLong_FromSize_t(self_message(self).native->ByteSizeLong());
}

PyObject* parse(PyObject* self, PyObject* data) {
  return py::enter([&] {
    const Bytes bytes(data);
    MessageObject& message = self_message(self);
    replace_contents(message, parsed(*message.info, bytes.view()));
    return py::checked(PyLong_FromSsize_t(bytes.size()));
  });
}

PyObject* merge_bytes(PyObject* self, PyObject* data) {
  return py::enter([&] {
    const Bytes bytes(data);
    MessageObject& message = self_message(self);
    const std::unique_ptr<NativeMessage> from = parsed(*message.info, bytes.view());
    merge(message, *from);
    return py::checked(PyLong_FromSsize_t(bytes.size()));
  });
}

PyObject* from_string(PyObject* cls, PyObject* data) {
  return py::enter([&] {
    auto* type = reinterpret_cast<PyTypeObject*>(cls);
    return new_message(type, parsed(concrete_info(type), Bytes(data).view()));
  });
}

// ---- Copies

PyObject* merge_from(PyObject* self, PyObject* other) {
  return py::enter([&] {
    MessageObject& message = self_message(self);
    const MessageObject& from = same_type(message, other);
    // By way of a copy: the other may be within this message, or this within the other.
    if (&from != &message) merge(message, *copy_native(*message.info, *from.native));
    return none();
  });
}

PyObject* copy_from(PyObject* self, PyObject* other) {
  return py::enter([&] {
    MessageObject& message = self_message(self);
    const MessageObject& from = same_type(message, other);
    if (&from != &message) {
      replace_contents(message, copy_native(*message.info, *from.native));
    }
    return none();
  });
}

PyObject* set_in_parent(PyObject* self, PyObject*) {
  return py::enter([&] {
    writable(self_message(self));
    return none();
  });
}

PyObject* copy(PyObject* self, PyObject* /*memo*/) {
  return py::enter([&] {
    const MessageObject& message = self_message(self);
    return new_message(Py_TYPE(self), copy_native(*message.info, *message.native));
  });
}

PyObject* get_ptr(PyObject* self, PyObject*) {
  return py::enter([&] { return address_of(self_message(self)); });
}

PyObject* compare(PyObject* self, PyObject* other, int operation) {
  return py::enter([&] {
    const bool comparable = (operation == Py_EQ || operation == Py_NE) &&
                            is_message(py::Borrowed(other)) &&
                            self_message(other).info == self_message(self).info;
    if (!comparable) return py::Owned::share(py::Borrowed(Py_NotImplemented));
    const MessageObject& message = self_message(self);
    const bool equal =
        self == other || are_equal(*message.info, *message.native, *self_message(other).native);
    return py::checked(PyBool_FromLong(equal == (operation == Py_EQ)));
  });
}

PyObject* repr(PyObject* self) {
  return py::enter([&] { return readable(self_message(self)); });
}

PyMethodDef methods[] = {
    {"get_ptr", get_ptr, METH_NOARGS,
     "get_ptr()\n--\n\nThe address of the native message, valid while this object lives."},
    {"HasField", has_field, METH_O, "HasField(name)\n--\n\nWhether a field or oneof is set."},
    {"ClearField", clear_named, METH_O, "ClearField(name)\n--\n\nUnsets a field or oneof."},
    {"WhichOneof", which_oneof, METH_O,
     "WhichOneof(name)\n--\n\nThe name of the member of a oneof that is set, or None."},
    {"Clear", clear_all, METH_NOARGS, "Clear()\n--\n\nUnsets all fields."},
    {"ListFields", list_fields, METH_NOARGS,
     "ListFields()\n--\n\nPairs of Field and value of all fields that are set, by number."},
    {"IsInitialized", is_initialized, METH_NOARGS,
     "IsInitialized()\n--\n\nWhether all required fields are set."},
    {"ByteSize", byte_size, METH_NOARGS, "ByteSize()\n--\n\nThe size of the serialised message."},
    {"SerializeToString", py::method_pointer(serialize), METH_VARARGS | METH_KEYWORDS,
     "SerializeToString(deterministic=False)\n--\n\n"
     "The message as bytes. EncodeError: a required field is not set."},
    {"SerializePartialToString", py::method_pointer(serialize_partial),
     METH_VARARGS | METH_KEYWORDS,
     "SerializePartialToString(deterministic=False)\n--\n\n"
     "The message as bytes, required fields or not."},
    {"ParseFromString", parse, METH_O,
     "ParseFromString(data)\n--\n\nReplaces the contents by those in the bytes and returns how\n"
     "many there were. DecodeError: they are no such message; nothing is changed."},
    {"MergeFromString", merge_bytes, METH_O,
     "MergeFromString(data)\n--\n\nMerges the message in the bytes into this one."},
    {"FromString", from_string, METH_O | METH_CLASS,
     "FromString(data)\n--\n\nA new message from bytes."},
    {"ToJson", py::method_pointer(to_json), METH_VARARGS | METH_KEYWORDS, kToJsonDoc},
    {"FromJson", py::method_pointer(from_json), METH_VARARGS | METH_KEYWORDS | METH_CLASS,
     kFromJsonDoc},
    {"MergeFrom", merge_from, METH_O,
     "MergeFrom(other)\n--\n\nSets what is set in other; appends to repeated fields."},
    {"CopyFrom", copy_from, METH_O, "CopyFrom(other)\n--\n\nBecomes equal to other."},
    {"SetInParent", set_in_parent, METH_NOARGS,
     "SetInParent()\n--\n\nMarks this message as set in the message it is a field of."},
    {"__copy__", copy, METH_NOARGS, "A copy; messages within are copied too."},
    {"__deepcopy__", copy, METH_O, "A copy."},
    {"__reduce__", reduce_message, METH_NOARGS, "How the message is pickled: as its bytes."},
    {nullptr, nullptr, 0, nullptr}};

constexpr const char* kDoc =
    "The base of message classes, which protoc-gen-vu makes from .proto files.\n\n"
    "Message(**fields) makes a new message; Message(address) copies the native message at\n"
    "an address, as replies hand it over.";

}  // namespace

void fill_message_type(PyTypeObject& type) {
  type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
  type.tp_doc = kDoc;
  type.tp_new = new_empty;
  type.tp_init = init;
  type.tp_dealloc = dealloc_message;
  type.tp_repr = repr;
  type.tp_hash = PyObject_HashNotImplemented;
  type.tp_richcompare = compare;
  type.tp_methods = methods;
}

}  // namespace vu
