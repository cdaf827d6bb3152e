#include "elements.h"

#include <utility>

#include "field.h"
#include "native_map.h"

namespace vu {

Element to_element(Field& field, const Place& place, py::Borrowed value) {
  if (field.message) return {{}, to_native(element_info(field), place, value)};
  return {to_scalar(*field.descriptor, place, value), nullptr};
}

std::vector<Element> to_elements(Field& field, const Place& place, py::Borrowed values) {
  const auto refuse = [&] { raise_type(place, "a list of values", values); };
  if (PyUnicode_Check(values.get()) || PyBytes_Check(values.get()) || PyDict_Check(values.get())) {
    refuse();
  }
  // A list of its own: converting an element may run code that changes `values`.
  const py::Owned list = py::Owned::steal(PySequence_Tuple(values.get()));
  if (list.is_null()) {
    py::expect_error(PyExc_TypeError);
    refuse();
  }
  std::vector<Element> elements;
  elements.reserve(static_cast<std::size_t>(PyTuple_GET_SIZE(list.get())));
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(list.get()); ++i) {
    const Place place_of_element = place.element(static_cast<int>(i));
    const py::Borrowed value(PyTuple_GET_ITEM(list.get(), i));
    elements.push_back(to_element(field, place_of_element, value));
  }
  return elements;
}

py::Owned get_element(MessageObject& message, Field& field, int index) {
  if (!field.message) return get_scalar(*message.native, *field.descriptor, index);
  return element_of(message, field, field_message(message, field, index));
}

void add_element(MessageObject& message, Field& field, Element&& element) {
  NativeMessage& native = writable(message);
  if (field.message) {
    field.reflection->AddAllocatedMessage(&native, field.descriptor, element.message.release());
  } else {
    add_scalar(native, *field.descriptor, std::move(element.scalar));
  }
}

void set_element(MessageObject& message, Field& field, int index, Element&& element) {
  if (!field.message) {
    set_scalar(writable(message), *field.descriptor, index, std::move(element.scalar));
    return;
  }
  const int last = element_count(message, field);
  add_element(message, field, std::move(element));
  field.reflection->SwapElements(message.native, field.descriptor, index, last);
  release_element(std::unique_ptr<NativeMessage>(
      field.reflection->ReleaseLast(message.native, field.descriptor)));
}

void reverse_elements(MessageObject& message, Field& field, int first, int last) {
  for (--last; first < last; ++first, --last) {
    field.reflection->SwapElements(message.native, field.descriptor, first, last);
  }
}

void insert_elements(MessageObject& message, Field& field, int index,
                     std::vector<Element>&& elements) {
  writable(message);
  const int old_count = element_count(message, field);
  for (Element& element : elements) add_element(message, field, std::move(element));
  const int count = element_count(message, field);
  if (index == old_count || count == old_count) return;
  // Rotates the new elements in front of those from `index` on.
  reverse_elements(message, field, index, old_count);
  reverse_elements(message, field, old_count, count);
  reverse_elements(message, field, index, count);
}

void retain_elements(MessageObject& message, Field& field, const std::vector<bool>& keep) {
  NativeMessage& native = writable(message);
  int kept = 0;
  const auto count = static_cast<int>(keep.size());
  for (int i = 0; i < count; ++i) {
    if (!keep[static_cast<std::size_t>(i)]) continue;
    if (kept != i) field.reflection->SwapElements(&native, field.descriptor, kept, i);
    ++kept;
  }
  for (int i = kept; i < count; ++i) {
    if (field.message) {
      release_element(
          std::unique_ptr<NativeMessage>(field.reflection->ReleaseLast(&native, field.descriptor)));
    } else {
      field.reflection->RemoveLast(&native, field.descriptor);
    }
  }
}

}  // namespace vu
