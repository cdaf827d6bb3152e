#include "link.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <string>

namespace vu_global {

const vu_thread_api* thread_api = nullptr;

namespace {

// How many replies and events one turn of the loop delivers, at most.
constexpr std::uint32_t kBatch = 256;

// All open links, oldest first.
std::vector<Link*>& open_links() {
  static auto* const links = new std::vector<Link*>();  // for the finalisers after exit handlers
  return *links;
}

bool is_after_exit_handlers = false;

py::Owned without_password(const char* store) {
  std::string text(2 * std::strlen(store) + 8, '\0');
  if (vu_platform_store_text(store, text.data(), text.size()) != VU_MOM_OK) throw std::bad_alloc();
  return py::checked(PyUnicode_FromString(text.c_str()));
}

}  // namespace

Link::Link(Global& self, py::Borrowed store) : self_(self), store_(py::Owned::share(store)) {
  // Text that is no UTF-8 or holds a zero byte raises here.
  const py::Owned bytes = py::checked(PyUnicode_AsUTF8String(store.get()));
  char* text = nullptr;
  if (PyBytes_AsStringAndSize(bytes.get(), &text, nullptr) < 0) {
    py::expect_error(PyExc_ValueError);
    py::raise(PyExc_ValueError, "store must not contain a null character");
  }
  store_text_ = without_password(text);
  open_links().push_back(this);
  is_listed_ = true;
  try {
    source_ = thread_api->add_source(
        self.thread_master, [](void* link) { return static_cast<Link*>(link)->deliver(); },
        [](void* link) { return vu_platform_next_due(static_cast<Link*>(link)->self_.handle); },
        this);
    if (source_ == nullptr) throw py::PythonError();
    std::array<char, 512> reason = {};
    self.handle = vu_platform_open(
        text, thread_api->uv_loop(self.thread_master),
        [](void* link) { static_cast<Link*>(link)->wake(); }, this, reason.data(), reason.size());
    if (self.handle == nullptr && reason[0] == '\0') {
      PyErr_NoMemory();
      throw py::PythonError();
    }
    if (self.handle == nullptr) {
      py::raise(PyExc_ValueError, "store %R cannot be opened: %s", store_text_.get(),
                reason.data());
    }
  } catch (const py::PythonError&) {
    let_go();
    throw;
  }
}

Link::~Link() {
  close_silently();
  if (!is_abandoned_ && self_.handle != nullptr) vu_platform_free(self_.handle);
  self_.handle = nullptr;
}

int Link::deliver() {
  const py::Owned keep = py::Owned::share(py::Borrowed(self()));  // callbacks drop what they like
  is_delivering_ = true;
  const int more = vu_platform_deliver(self_.handle, kBatch);
  is_delivering_ = false;
  if (!is_closed_) return more;
  finish();
  return 0;
}

void Link::wake() {
  if (source_ != nullptr) thread_api->wake(source_);
}

void Link::close() {
  if (is_closed_) return;
  if (thread_api->is_from_parent(self_.thread_master) != 0) {
    close_silently();
    return;
  }
  is_closed_ = true;
  vu_platform_close(self_.handle);
  if (!is_delivering_) finish();
}

void Link::close_silently() {
  if (!is_closed_) {
    is_closed_ = true;
    is_abandoned_ = thread_api->is_from_parent(self_.thread_master) != 0;
    if (!is_abandoned_ && self_.handle != nullptr) vu_platform_close(self_.handle);
  }
  let_go();
}

// The handle is closed: what is pending can only become less.
void Link::finish() {
  is_delivering_ = true;
  while (vu_platform_deliver(self_.handle, kBatch) != 0) {
  }
  is_delivering_ = false;
  let_go();
}

void Link::let_go() {
  if (is_listed_) std::erase(open_links(), this);
  is_listed_ = false;
  if (source_ != nullptr) thread_api->remove_source(std::exchange(source_, nullptr));
  drop_apps();
}

void Link::add_app(py::Borrowed app) {
  const auto is_app = [&](const py::Owned& known) { return known.is(app.get()); };
  if (std::any_of(apps_.begin(), apps_.end(), is_app)) return;
  apps_.push_back(py::Owned::share(app));
}

void Link::drop_apps() {
  std::vector<py::Owned>().swap(apps_);  // empty before their finalisers run, which may come back
}

py::Borrowed Link::find_open(py::Borrowed type, py::Borrowed store) {
  for (const Link* const link : open_links()) {
    if (link->is_closed_ || !type.is(Py_TYPE(link->self()))) continue;
    if (thread_api->is_from_parent(link->self_.thread_master) != 0) continue;
    if (PyUnicode_Compare(link->store_.get(), store.get()) == 0) return py::Borrowed(link->self());
  }
  return py::Borrowed();
}

void Link::close_all_at_exit() {
  while (!open_links().empty()) {
    Link& link = *open_links().front();
    const py::Owned keep = py::Owned::share(py::Borrowed(link.self()));
    link.close();
    // Still listed where another thread, stuck in a reply method, delivers at this moment.
    if (std::exchange(link.is_listed_, false)) std::erase(open_links(), &link);
  }
  is_after_exit_handlers = true;
}

bool Link::is_at_exit() { return is_after_exit_handlers; }

}  // namespace vu_global
