#include "client/reply_name.h"

namespace vu_mom {
namespace {

const Name package_name_attribute("package_name");
const Name short_name_attribute("short_name");
const Name underscore("_");

py::Owned attribute(py::Borrowed object, const Name& name) {
  return py::checked(py::get_attribute(object.get(), name.get().get()));
}

py::Owned add(py::Borrowed left, py::Borrowed right) {
  return py::checked(PyNumber_Add(left.get(), right.get()));
}

}  // namespace

py::Owned ReplyPrefix::name_for(py::Borrowed obj) const {
  const py::Owned package_name = attribute(obj, package_name_attribute);
  if (!PyUnicode_CheckExact(package_name.get())) {
    // The joining may run anybody's code, in between the two attributes.
    const py::Owned joined = add(add(prefix_.get(), package_name), underscore.get());
    return add(joined, attribute(obj, short_name_attribute));
  }
  const py::Owned short_name = attribute(obj, short_name_attribute);
  const bool exact = PyUnicode_CheckExact(short_name.get());
  py::Owned name = exact ? find(package_name, short_name) : py::Owned();
  if (name.is_null()) {
    name = add(add(add(prefix_.get(), package_name), underscore.get()), short_name);
    if (exact) remember(package_name, short_name, name);
  }
  return name;
}

py::Owned ReplyPrefix::find(py::Borrowed package_name, py::Borrowed short_name) const {
  for (const Joined& joined : joined_) {
    if (short_name.is(joined.short_name) && package_name.is(joined.package_name)) {
      return py::Owned::share(py::Borrowed(joined.name));
    }
  }
  return {};
}

void ReplyPrefix::remember(py::Borrowed package_name, py::Borrowed short_name,
                           py::Owned& name) const {
  PyObject* interned = name.release();
  PyUnicode_InternInPlace(&interned);
  name = py::Owned::steal(interned);
  Joined& joined = joined_[next_];
  next_ = (next_ + 1) % kMostJoined;
  py::replace(joined.package_name, py::Owned::share(package_name));
  py::replace(joined.short_name, py::Owned::share(short_name));
  py::replace(joined.name, py::Owned::share(name));
}

}  // namespace vu_mom
