#include "place.h"

#include "entries.h"
#include "message.h"
#include "message_class.h"
#include "scalar.h"

namespace vu {

namespace {

std::string index_text(int index) { return "[" + std::to_string(index) + "]"; }

// "['eth0']", "[7]": the key as Python shows it.
std::string key_text(const Field& field, const Key& key) {
  const py::Owned shown = py::checked(PyObject_Repr(from_map_key(key_type(field), key).get()));
  const char* const text = PyUnicode_AsUTF8(shown.get());
  if (text == nullptr) throw py::PythonError();
  return std::string("[") + text + "]";
}

// Which element of its field a message is.
std::string step_to(const MessageObject& element) {
  const Field& field = *element.field;
  std::string step;
  if (field.map) {
    each_entry(*element.parent->native, *field.descriptor,
               [&](const Key& key, const google::protobuf::MapValueRef& value) {
                 if (&value.GetMessageValue() == element.native) step = key_text(field, key);
               });
    return step;
  }
  for (int i = 0; i < element_count(*element.parent, field); ++i) {
    if (&field_message(*element.parent, field, i) == element.native) step = index_text(i);
  }
  return step;
}

}  // namespace

std::string path_of(const Node& node) {
  // Only messages have no parent.
  if (node.parent == nullptr) return static_cast<const MessageObject&>(node).info->name();
  const bool is_view = !is_message(py::Borrowed(const_cast<Node*>(&node)));
  const auto* const message = is_view ? nullptr : static_cast<const MessageObject*>(&node);
  std::string path = path_of(*node.parent) + "." + node.field->descriptor->name();
  if (message != nullptr && message->element) path += step_to(*message);
  return path;
}

Place Place::element(int index) const {
  Place place = *this;
  place.index_ = index;
  return place;
}

Place Place::entry(const Key& key) const {
  Place place = *this;
  place.entry_ = &key;
  return place;
}

Place Place::key() const {
  Place place = *this;
  place.is_key_ = true;
  return place;
}

std::string Place::text() const {
  std::string text = around_ != nullptr ? around_->text() : path_of(*holder_);
  const Field& field = field_ != nullptr ? *field_ : *holder_->field;
  if (field_ != nullptr) text += "." + field.descriptor->name();
  if (index_ >= 0) text += index_text(index_);
  if (entry_ != nullptr) text += key_text(field, *entry_);
  return is_key_ ? text + " key" : text;
}

}  // namespace vu
