// The binding's commands with arguments of every sort, against the recording store of
// tests/binding: numbers at the edges, objects that misbehave, lists that change while they
// are read, keywords, statuses, failing allocations, replies, and commands inside all that.
//
// After each call: an exception exactly where the status or an argument says so; references
// kept exactly where they are kept on purpose; no block freed twice or forgotten.
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include "../binding/recorder/recorder.h"
}
#include "input.h"
#include "interpreter.h"
#include "vu_mom_impl.h"

namespace vu::fuzz {

namespace {

constexpr int kDeepest = 2;

struct Command {
  PyObject* name;
  std::string text;
  PyObject* parameters;  // a tuple of names
  std::vector<std::string> kinds;
  bool with_context;
};

// What is looked up once. Kept for good.
struct Known {
  std::vector<Command> commands;
  std::vector<PyObject*> clients;
  PyObject* values;
  PyObject* numbers;
  PyObject* messages;
  PyObject* functions;
  PyObject* get_objects;
  PyObject* settle;
  PyObject* privdata_type;
  PyObject* p;
  PyObject* cb;
  PyObject* flag;
  PyObject* error;
  PyObject* input_error;
};

std::string text_of(PyObject* object) { return PyUnicode_AsUTF8(object); }

class Run;
Run* running = nullptr;
int reports = 0;

PyObject* report(PyObject*, PyObject*) {
  ++reports;
  return py::Owned::share(py::Borrowed(Py_None)).release();
}

PyObject* act(PyObject*, PyObject*);

Known& known() {
  static auto* const all = [] {
    auto* const made = new Known();
    const py::Owned rows = import_object("binding_values", "COMMANDS");
    const py::Owned contexts = import_object("binding_values", "WITH_CONTEXT");
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(rows.get()); ++i) {
      PyObject* const row = PyList_GET_ITEM(rows.get(), i);
      Command command;
      command.name = py::Owned::share(py::Borrowed(PyTuple_GET_ITEM(row, 0))).release();
      command.text = text_of(command.name);
      command.parameters = py::Owned::share(py::Borrowed(PyTuple_GET_ITEM(row, 1))).release();
      PyObject* const kinds = PyTuple_GET_ITEM(row, 2);
      for (Py_ssize_t k = 0; k < PyTuple_GET_SIZE(kinds); ++k) {
        command.kinds.push_back(text_of(PyTuple_GET_ITEM(kinds, k)));
      }
      command.with_context = PyList_GET_ITEM(contexts.get(), i) == Py_True;
      made->commands.push_back(command);
    }
    const py::Owned clients = import_object("binding_values", "CLIENTS");
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(clients.get()); ++i) {
      PyObject* const client = PyList_GET_ITEM(clients.get(), i);
      made->clients.push_back(py::Owned::share(py::Borrowed(client)).release());
    }
    made->values = import_object("hostile", "VALUES").release();
    made->numbers = import_object("binding_values", "NUMBERS").release();
    made->messages = import_object("binding_values", "MESSAGES").release();
    made->functions = import_object("binding_values", "FUNCTIONS").release();
    made->get_objects = import_object("gc", "get_objects").release();
    made->settle = import_object("binding_values", "settle").release();
    made->privdata_type = import_object("types", "SimpleNamespace").release();
    made->error = import_object("vu_mom", "Error").release();
    made->input_error = import_object("vu_mom", "InputError").release();
    made->p = PyUnicode_InternFromString("p");
    made->cb = PyUnicode_InternFromString("cb");
    made->flag = PyUnicode_InternFromString("flag");

    static PyMethodDef methods[] = {{"act", act, METH_NOARGS, nullptr},
                                    {"report", report, METH_O, nullptr}};
    const py::Owned hostile = py::Owned::steal(PyImport_ImportModule("hostile"));
    const py::Owned acting = py::Owned::steal(PyCFunction_New(&methods[0], nullptr));
    check(PyObject_SetAttrString(hostile.get(), "act", acting.get()) == 0, "hostile.act");
    const py::Owned reporting = py::Owned::steal(PyCFunction_New(&methods[1], nullptr));
    check(PySys_SetObject("unraisablehook", reporting.get()) == 0, "sys.unraisablehook");
    check(recorder_watch("vu_mom.so") >= 2, "the binding's allocations cannot be watched");
    check(succeeded(PyObject_CallNoArgs(made->settle)), "settle");
    return made;
  }();
  return *all;
}

// Printing an error leaves it here.
void forget_errors() {
  for (const char* const name : {"last_type", "last_value", "last_traceback", "last_exc"}) {
    PySys_SetObject(name, nullptr);
  }
}

// Contexts and callbacks of the one call that the recorder has seen.
struct Sent {
  bool called = false;
  std::string function;
  std::vector<std::uintptr_t> callbacks;
  std::vector<PyObject*> contexts;
};

std::vector<std::uintptr_t> addresses_at(const std::string& line, const char* name) {
  std::vector<std::uintptr_t> found;
  const std::size_t at = line.find(name);
  if (at == std::string::npos) return found;
  const char* text = line.c_str() + at + std::strlen(name);
  if (std::strncmp(text, "null", 4) == 0) return found;
  if (*text == '[') ++text;
  while (*text >= '0' && *text <= '9') {
    char* end = nullptr;
    found.push_back(static_cast<std::uintptr_t>(std::strtoull(text, &end, 10)));
    text = *end == ' ' ? end + 1 : end;
    if (*end != ' ' || line[at + std::strlen(name)] != '[') break;
  }
  return found;
}

Sent sent() {
  Sent sent;
  const std::string line = recorder_calls();
  if (line.empty()) return sent;
  check(line.find('\n') == line.size() - 1, "a command has called the store twice");
  sent.called = true;
  sent.function = line.substr(0, line.find(' '));
  for (const char* const name : {" context=", " contexts="}) {
    for (const std::uintptr_t address : addresses_at(line, name)) {
      sent.contexts.push_back(reinterpret_cast<PyObject*>(address));
    }
  }
  for (const char* const name : {" callback=", " callbacks="}) {
    const auto callbacks = addresses_at(line, name);
    sent.callbacks.insert(sent.callbacks.end(), callbacks.begin(), callbacks.end());
  }
  recorder_clear();
  return sent;
}

class Run {
 public:
  explicit Run(Input& input) : in_(input) {}

  void all();
  PyObject* act();

 private:
  // The arguments of one call.
  struct Call {
    const Command* command;
    PyObject* client;
    py::Owned privdata;
    std::vector<py::Owned> arguments;
    std::vector<PyObject*> names;  // of the keywords among them
  };

  void command();
  py::Owned value(const std::string& kind, const py::Owned& privdata);
  py::Owned list(const std::string& kind, const py::Owned& privdata);
  py::Owned any();
  PyObject* call(const Call& call);
  void check_outcome(const Call& call, PyObject* result, std::int32_t status, bool disturbed,
                     const Sent& sent);
  void deliver(const Sent& sent);
  void deliver(const Sent& sent, std::size_t which);
  std::size_t give_back_kept(PyObject* privdata);

  Input& in_;
  int depth_ = 0;
  std::int32_t status_ = VU_MOM_OK;  // what the store answers
  bool may_keep_blocks_ = false;
  std::vector<PyObject*> lists_;  // that calls under way read; kept by them
};

PyObject* act(PyObject*, PyObject*) {
  if (running == nullptr) return py::Owned::share(py::Borrowed(Py_None)).release();
  return running->act();
}

PyObject* from(PyObject* list, std::size_t which) {
  return PyList_GET_ITEM(list, static_cast<Py_ssize_t>(which) % PyList_GET_SIZE(list));
}

py::Owned Run::any() { return py::Owned::share(py::Borrowed(from(known().values, in_.byte()))); }

py::Owned Run::list(const std::string& kind, const py::Owned& privdata) {
  const std::size_t count = in_.pick(4);
  py::Owned made = py::Owned::steal(PyList_New(0));
  for (std::size_t i = 0; i < count; ++i) {
    const py::Owned element = value(kind, privdata);
    PyList_Append(made.get(), element.get());
  }
  lists_.push_back(made.get());
  return made;
}

// Mostly one of the kind that the parameter wants.
py::Owned Run::value(const std::string& kind, const py::Owned& privdata) {
  const std::size_t which = in_.byte();
  if (which >= 208) return any();
  const auto one_of = [&](PyObject* pool) {
    return py::Owned::share(py::Borrowed(from(pool, which)));
  };
  if (kind == "number") return one_of(known().numbers);
  if (kind == "message") return one_of(known().messages);
  if (kind == "functions" && which < 64) return list("function", privdata);
  if (kind == "function") return one_of(known().functions);
  if (kind == "privdata") return py::Owned::share(privdata);
  if (which >= 192) return py::Owned::share(py::Borrowed(Py_None));
  if (kind == "numbers") return list("number", privdata);
  if (kind == "messages") return list("message", privdata);
  if (kind == "functions") return list("function", privdata);
  return list("privdata", privdata);
}

PyObject* Run::call(const Call& call) {
  std::vector<PyObject*> vector(1, call.client);
  for (const py::Owned& argument : call.arguments) vector.push_back(argument.get());
  const std::size_t positional = vector.size() - call.names.size();
  py::Owned names;
  if (!call.names.empty()) {
    names = py::Owned::steal(PyTuple_New(static_cast<Py_ssize_t>(call.names.size())));
    for (std::size_t i = 0; i < call.names.size(); ++i) {
      PyTuple_SET_ITEM(names.get(), static_cast<Py_ssize_t>(i),
                       py::Owned::share(py::Borrowed(call.names[i])).release());
    }
  }
  return PyObject_VectorcallMethod(call.command->name, vector.data(), positional, names.get());
}

void Run::command() {
  Call made;
  made.command = &in_.pick_of(known().commands);
  const std::size_t options = in_.byte();
  made.client = known().clients[options % 2];
  made.privdata = ended(PyObject_CallNoArgs(known().privdata_type));
  check(!made.privdata.is_null(), "no privdata");
  const std::size_t first_list = lists_.size();
  std::size_t count = made.command->kinds.size();
  if (options % 8 == 7) count = in_.pick(8);  // too few or too many
  std::size_t first_keyword = count;
  if (options % 16 >= 12) first_keyword = in_.pick(count + 1);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string kind = i < made.command->kinds.size() ? made.command->kinds[i] : "number";
    made.arguments.push_back(value(kind, made.privdata));
    if (i < first_keyword) continue;
    const auto parameters = static_cast<std::size_t>(PyTuple_GET_SIZE(made.command->parameters));
    std::size_t name = i < parameters ? i : 0;
    if (options >= 240) name = in_.pick(parameters);
    PyObject* const chosen =
        PyTuple_GET_ITEM(made.command->parameters, static_cast<Py_ssize_t>(name));
    bool twice = false;  // which the interpreter itself refuses
    for (PyObject* const other : made.names) twice = twice || other == chosen;
    if (twice) {
      made.arguments.pop_back();
    } else {
      made.names.push_back(chosen);
    }
  }
  constexpr std::int32_t kStatuses[] = {
      0, 0, 0, 0, VU_MOM_FAILED, VU_MOM_BAD_INPUT, VU_MOM_NO_MEMORY, 7};
  const std::int32_t status = kStatuses[options / 16 % 8];
  const bool failing = (options & 0x80) != 0 && in_.pick(4) == 0;
  if (failing) recorder_fail_allocation(static_cast<int>(in_.pick(3)) + 1);
  const std::int32_t outer_status = std::exchange(status_, status);
  recorder_answer(status_);
  const int reports_before = reports;
  PyObject* const result = call(made);
  const bool disturbed = failing || reports != reports_before;
  // An array whose filling fails stays, though the error is only reported.
  if (reports != reports_before) may_keep_blocks_ = true;
  recorder_fail_allocation(0);
  status_ = outer_status;
  recorder_answer(status_);
  const Sent sent = fuzz::sent();
  lists_.resize(first_list);
  check_outcome(made, result, status, disturbed, sent);
  if (!ended(result).is_null()) {
    deliver(sent);
  } else {
    for (PyObject* const context : sent.contexts) py::Owned::steal(context);
  }
  forget_errors();
  made.arguments.clear();
  if (Py_REFCNT(made.privdata.get()) != 1) {
    // A call that ends before the store's leaves the contexts that it has made.
    check(!sent.called && made.command->with_context, "a context was kept");
    give_back_kept(made.privdata.get());
  }
  check(Py_REFCNT(made.privdata.get()) == 1, "references to privdata");
}

// `disturbed`: memory was short, or an error could not be raised and was reported.
void Run::check_outcome(const Call& call, PyObject* result, std::int32_t status, bool disturbed,
                        const Sent& sent) {
  const auto raises = [](PyObject* type) { return PyErr_ExceptionMatches(type) != 0; };
  if (!sent.called) {
    // Without elements these have nothing to ask for.
    const std::string& name = call.command->text;
    const bool may_do_nothing = name == "subscribe_field" || name == "unsubscribe_field" ||
                                name == "pexpire_fields" || name == "zadd";
    check(result == nullptr || may_do_nothing, "a command did nothing");
    if (result == nullptr) may_keep_blocks_ = true;
    return;
  }
  const bool swallowed =
      call.command->text == "publish" && status != VU_MOM_BAD_INPUT && status != VU_MOM_NO_MEMORY;
  if (status == VU_MOM_OK || swallowed) {
    check(result == Py_None, "an accepted command failed");
  } else if (!disturbed) {
    check(result == nullptr, "a refused command succeeded");
    PyObject* const type = status == VU_MOM_BAD_INPUT   ? known().input_error
                           : status == VU_MOM_NO_MEMORY ? PyExc_MemoryError
                                                        : known().error;
    check(raises(type), "another exception than that of the status");
  } else {
    check(result == nullptr, "a refused command succeeded");
  }
}

// The contexts of calls that failed on their way to the store; its reference of each is
// given back.
std::size_t Run::give_back_kept(PyObject* privdata) {
  const py::Owned objects = ended(PyObject_CallNoArgs(known().get_objects));
  check(!objects.is_null(), "gc.get_objects");
  std::vector<PyObject*> contexts;
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(objects.get()); ++i) {
    PyObject* const object = PyList_GET_ITEM(objects.get(), i);
    if (PyDict_CheckExact(object) == 0) continue;
    // As privdata or, with the arguments in another order, as the callable.
    if (PyDict_GetItem(object, known().p) == privdata ||
        PyDict_GetItem(object, known().cb) == privdata) {
      contexts.push_back(object);
    }
  }
  for (PyObject* const context : contexts) {
    check(Py_REFCNT(context) == 2, "references to a context that was kept");
    py::Owned::steal(context);
  }
  return contexts.size();
}

void Run::deliver(const Sent& sent) {
  for (std::size_t i = 0; i < sent.contexts.size(); ++i) {
    check(Py_REFCNT(sent.contexts[i]) == 1, "references to a context");
    deliver(sent, i);
  }
}

// Some replies, until the context is given back.
void Run::deliver(const Sent& sent, std::size_t which) {
  constexpr std::int32_t kTypes[] = {0,  1,  3,  4,  6,  9,  10, 11, 12, 13, 18, 19, 24,
                                     28, 29, 34, 35, 36, 37, 39, 40, 41, 42, 2,  -1, 99};
  PyObject* const context = sent.contexts[which];
  const std::uintptr_t callback = sent.callbacks[which < sent.callbacks.size() ? which : 0];
  const bool scans = sent.function == "vu_mom_scan" || sent.function == "vu_mom_scan_index";
  const bool subscribes = sent.function.rfind("vu_mom_subscribe", 0) == 0;
  const py::Owned mine = py::Owned::share(py::Borrowed(context));
  for (std::size_t count = in_.pick(4); count > 0 && Py_REFCNT(context) == 2; --count) {
    vu_mom_reply reply{};
    const std::size_t options = in_.byte();
    reply.type_code = kTypes[options % std::size(kTypes)];
    reply.end_mark = static_cast<std::uint32_t>(in_.pick(7));
    reply.data = options >= 128 ? nullptr : &reply;
    const bool null = options == 255;
    void* const privdata = options == 254 ? nullptr : context;
    const int reports_before = reports;
    if (scans || subscribes) {
      const auto stream = reinterpret_cast<vu_mom_stream_cb>(callback);
      check(stream(nullptr, null ? nullptr : &reply, privdata) == 0, "a stream callback's value");
    } else {
      const auto answer = reinterpret_cast<vu_mom_reply_cb>(callback);
      answer(nullptr, null ? nullptr : &reply, privdata);
    }
    check(PyErr_Occurred() == nullptr, "a callback left an error");
    forget_errors();
    const bool failed = reports != reports_before;
    bool last = !failed;
    if (scans) {
      last = !failed && reply.end_mark == VU_MOM_END_SCAN;
    } else if (subscribes) {
      last = !failed && reply.type_code == VU_MOM_TYPE_SUBSCRIPTION_ENDED;
      // No message at all: given back, with an error.
      if (reply.type_code == 2 || reply.type_code == -1 || reply.type_code == 99 ||
          reply.type_code == VU_MOM_TYPE_INDEX) {
        last = !null && privdata != nullptr;
      }
    } else if (PyObject* const flag = PyDict_GetItem(context, known().flag)) {
      last = !failed && PyLong_AsUnsignedLong(flag) == reply.end_mark;
    }
    check((Py_REFCNT(context) == 1) == last, "a context is given back with the last reply");
  }
  if (Py_REFCNT(context) == 2) py::Owned::steal(context);
}

// What misbehaving arguments do in the middle of a call.
PyObject* Run::act() {
  const auto none = [] { return py::Owned::share(py::Borrowed(Py_None)).release(); };
  if (in_.empty()) return none();
  switch (in_.pick(8)) {
    case 0:
      PyErr_SetString(PyExc_ValueError, "in the middle");
      return nullptr;
    case 1:
      for (PyObject* const list : lists_) PyList_SetSlice(list, 0, PyList_GET_SIZE(list), nullptr);
      return none();
    case 2:
      for (PyObject* const list : lists_) PyList_Append(list, Py_None);
      return none();
    case 3:
      for (PyObject* const list : lists_) PyList_SetSlice(list, 0, 1, nullptr);
      return none();
    case 4:
      if (depth_ < kDeepest) {
        // A command of its own, whose answer is not that of the outer one.
        ++depth_;
        const int outer_reports = reports;
        command();
        reports = outer_reports;
        --depth_;
      }
      return none();
    default:
      return none();
  }
}

void Run::all() {
  static int runs = 0;
  running = this;
  std::vector<Py_ssize_t> references;
  for (PyObject* const client : known().clients) references.push_back(Py_REFCNT(client));
  reports = 0;
  while (!in_.empty()) command();
  for (std::size_t i = 0; i < references.size(); ++i) {
    check(Py_REFCNT(known().clients[i]) == references[i], "references to a client");
  }
  running = nullptr;
  check(recorder_wrong_frees() == 0, "something was freed that was not the binding's");
  check(recorder_live_blocks() == 0 || may_keep_blocks_, "a native array was forgotten");
  recorder_clear();
  recorder_free_blocks();
  if (++runs % 4096 == 0) check(succeeded(PyObject_CallNoArgs(known().settle)), "settle");
}

}  // namespace

}  // namespace vu::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  vu::fuzz::start_interpreter();
  vu::fuzz::known();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vu::fuzz::Input input(data, size);
  vu::fuzz::Run(input).all();
  return 0;
}
