#include "messages_result.h"

#include "delivered.h"
#include "object.h"
#include "sequence.h"
#include "vu_mom_types.h"

namespace vu {
namespace {

// ---- What an item is: a message, or a pair of message and score --------------------

struct Plain {
  static constexpr auto kPayload = VU_PLATFORM_PAYLOAD_MESSAGES;
  static constexpr const char* kArgument = "messages";

  static py::Owned read(const vu_platform_payload& payload, std::size_t i, py::Borrowed cls) {
    return make_message(cls, payload.messages[i]);
  }
  static py::Owned take(const Callee&, py::Borrowed item) { return py::Owned::share(item); }
};

struct Scored {
  static constexpr auto kPayload = VU_PLATFORM_PAYLOAD_SCORED;
  static constexpr const char* kArgument = "pairs";

  static py::Owned pair(py::Borrowed message, double score) {
    const py::Owned number = py::checked(PyFloat_FromDouble(score));
    return py::checked(PyTuple_Pack(2, message.get(), number.get()));
  }
  static py::Owned read(const vu_platform_payload& payload, std::size_t i, py::Borrowed cls) {
    const double score = payload.scores[i];
    const py::Owned message = make_message(cls, payload.messages[i]);
    return pair(message, score);
  }
  static py::Owned take(const Callee& callee, py::Borrowed item) {
    if (PyTuple_Check(item.get()) == 0 || PyTuple_GET_SIZE(item.get()) != 2) {
      raise_wrong_type(callee, kArgument, "(message, score) tuples", item);
    }
    const py::Borrowed score(PyTuple_GET_ITEM(item.get(), 1));
    return pair(py::Borrowed(PyTuple_GET_ITEM(item.get(), 0)), real_number(callee, "score", score));
  }
};

// LrangeResult(data, cls)
template <typename Item>
py::Owned construct(PyTypeObject* type, const std::array<py::Borrowed, 2>& arguments) {
  const Callee callee{type};
  const auto [data, cls] = arguments;
  py::Owned owned_cls = message_class(callee, cls);
  const vu_platform_payload& payload = delivered_payload(callee, data, Item::kPayload);
  py::Owned items =
      tuple_of(payload.count, [&](std::size_t i) { return Item::read(payload, i, owned_cls); });
  return make_sequence(type, std::move(items), std::move(owned_cls));
}
template <typename Item>
constexpr Constructor<2> kConstructor = {{"data", "cls"}, construct<Item>};

// LrangeResult.of(messages, cls)
template <typename Item>
PyObject* of(PyObject* cls, PyObject* arguments, PyObject* keywords) {
  return py::enter([&] {
    auto* type = reinterpret_cast<PyTypeObject*>(cls);
    const Callee callee{type, ".of"};
    const auto [given, item_cls] =
        bind<2>(callee, {Item::kArgument, "cls"}, 2, arguments, keywords);
    py::Owned owned_cls = message_class(callee, item_cls);
    const py::Owned source = py::checked(PySequence_Tuple(given.get()));
    const auto count = static_cast<std::size_t>(PyTuple_GET_SIZE(source.get()));
    py::Owned items =
        tuple_of(count, [&](std::size_t i) { return Item::take(callee, item_at(source, i)); });
    return make_sequence(type, std::move(items), std::move(owned_cls));
  });
}

template <std::size_t kColumn>
PyObject* column(PyObject* self, void*) {
  return py::enter([&] {
    const py::Borrowed items = items_of(self);
    const auto count = static_cast<std::size_t>(PyTuple_GET_SIZE(items.get()));
    return tuple_of(count, [&](std::size_t i) {
      return py::Owned::share(item_at(item_at(items, i), kColumn));
    });
  });
}

// ---- Types -------------------------------------------------------------------------

PyGetSetDef messages_attributes[] = {class_attribute(), {}};

PyGetSetDef scored_attributes[] = {
    class_attribute(),
    py::attribute("messages", column<0>, nullptr, "The messages alone, as a tuple."),
    py::attribute("scores", column<1>, nullptr, "The scores alone, as a tuple of floats."),
    {}};

template <typename Item>
PyMethodDef methods[] = {
    {"of", py::method_pointer(of<Item>), METH_CLASS | METH_VARARGS | METH_KEYWORDS,
     Item::kPayload == VU_PLATFORM_PAYLOAD_SCORED
         ? "of($type, pairs, cls)\n--\n\nA result with (message, score) pairs of one's own: for "
           "tests,\n"
           "and for unpickling."
         : "of($type, messages, cls)\n--\n\nA result with messages of one's own: for tests, and "
           "for\n"
           "unpickling."},
    {}};

PyTypeObject messages_base = sequence_base(
    "vu_mom_common.MessagesResult",
    "What all results of several messages have in common: an immutable sequence of them.\n"
    "Equal to a result of the same type, a list or a tuple with equal messages in the same\n"
    "order. A slice is a result of the same type. Has no instances itself.",
    messages_attributes);

PyTypeObject scored_base = sequence_base(
    "vu_mom_common.ScoredResult",
    "What all results of messages with scores have in common: an immutable sequence of\n"
    "(message, score) tuples, with .messages and .scores beside. Equal to a result of the\n"
    "same type, a list or a tuple with equal pairs in the same order. A slice is a result of\n"
    "the same type. Has no instances itself.",
    scored_attributes);

template <typename Item>
PyTypeObject make_type(const char* name, PyTypeObject& base, const char* doc) {
  PyTypeObject type = py::static_type(name, sizeof(MessagesResultObject));
  type.tp_flags = Py_TPFLAGS_DEFAULT | VU_SEQUENCE;
  type.tp_doc = doc;
  type.tp_base = &base;
  set_constructor<kConstructor<Item>>(type);
  type.tp_methods = methods<Item>;
  return type;
}

PyTypeObject types[] = {
    make_type<Plain>(
        "vu_mom_common.SetResult", messages_base,
        "SetResult(data, cls)\n--\n\nA change of a set: the members added or removed."),
    make_type<Plain>("vu_mom_common.ListResult", messages_base,
                     "ListResult(data, cls)\n--\n\nA change of a list: the messages added, set or\n"
                     "removed."),
    make_type<Plain>(
        "vu_mom_common.SmembersResult", messages_base,
        "SmembersResult(data, cls)\n--\n\nThe members of a set, in the store's order."),
    make_type<Plain>("vu_mom_common.LrangeResult", messages_base,
                     "LrangeResult(data, cls)\n--\n\nMessages of a list, in its order."),
    make_type<Scored>("vu_mom_common.SortedsetResult", scored_base,
                      "SortedsetResult(data, cls)\n--\n\nA change of a sorted set: the members\n"
                      "added or removed, with their scores."),
    make_type<Scored>("vu_mom_common.ZrangeResult", scored_base,
                      "ZrangeResult(data, cls)\n--\n\nMembers of a sorted set between two ranks,\n"
                      "in the order of their scores."),
    make_type<Scored>("vu_mom_common.ZrangebyscoreResult", scored_base,
                      "ZrangebyscoreResult(data, cls)\n--\n\nMembers of a sorted set between two\n"
                      "scores, in the order of their scores."),
};

}  // namespace

void add_messages_results(py::Borrowed module) {
  for (PyTypeObject* base : {&messages_base, &scored_base}) {
    add_type(module, *base);
    register_sequence(*base);
  }
  for (PyTypeObject& type : types) add_type(module, type);
}

}  // namespace vu
