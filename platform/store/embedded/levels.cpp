// Commands on every object that matches the first key components, and subscriptions.
#include <memory>
#include <utility>
#include <vector>

#include "../identity.h"
#include "run.h"
#include "scan.h"

namespace vu::store {

std::string_view Run::prefix() const {
  const std::string_view identity = request_.identity;
  return identity.substr(0, prefix_size(identity, request_.level));
}

// The living objects that match.
std::vector<Cell> Run::matching() {
  std::vector<Cell> cells;
  shelf().for_each(prefix(), [&](Cell cell) {
    cells.push_back(cell);
    return true;
  });
  std::erase_if(cells, [this](Cell cell) { return !store_.refresh(shelf(), cell); });
  return cells;
}

// One reply per object, then the last with the end mark.
void Run::reply_on_level(const std::vector<Cell>& cells, std::uint32_t end_mark,
                         std::string error) {
  if (!request_.receiver.wanted()) return;
  ByteList identities;
  for (const Cell cell : cells) identities.add(object(cell).key());
  Notice last = reply_notice();
  last.end_mark = end_mark;
  last.count = static_cast<std::int64_t>(cells.size());
  if (!error.empty()) last.status = VU_MOM_FAILED;
  last.error = std::move(error);
  outbox_.add(session_, std::make_unique<LevelDelivery>(request_.receiver, std::move(identities),
                                                        std::move(last)));
}

void Run::remove_all(const std::vector<Cell>& cells, std::int32_t type_code) {
  for (const Cell cell : cells) store_.tell_gone(outbox_, shelf(), object(cell), type_code);
  for (const Cell cell : cells) shelf().remove(cell);
}

void Run::pexpire() {
  std::vector<Cell> cells = matching();
  reply_on_level(cells, VU_MOM_END_PEXPIRE);
  if (request_.lifetime_us <= 0) return remove_all(cells, VU_MOM_TYPE_NONE);
  std::vector<Lifetimes::Ticket> tickets;
  for (Cell& cell : cells) {
    cell = shelf().ensure_extra(cell);
    tickets.push_back(Lifetimes::make_ticket());
  }
  const std::int64_t deadline = store_.now() + request_.lifetime_us;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    store_.set_deadline(*object(cells[i]).extra(), deadline, std::move(tickets[i]));
  }
}

void Run::pexpire_fields() {
  std::vector<Cell> cells;  // hashes that have one of the fields
  bool other_kind = false;
  for (const Cell cell : matching()) {
    if (object(cell).kind() != Kind::kHash) {
      other_kind = true;
      continue;
    }
    for (const std::uint32_t tag : request_.tags) {
      if (body<HashBody>(cell).find(tag) == nullptr) continue;
      cells.push_back(cell);
      break;
    }
  }
  const bool refused = cells.empty() && other_kind;
  reply_on_level(cells, VU_MOM_END_PEXPIRE_FIELD,
                 refused ? "the object is not a hash; its fields have no lifetimes" : "");

  const auto for_each_field = [&](auto visit) {
    for (const Cell cell : cells) {
      for (const std::uint32_t tag : request_.tags) {
        if (body<HashBody>(cell).find(tag) != nullptr) visit(cell, tag);
      }
    }
  };
  if (request_.lifetime_us <= 0) {
    for_each_field([&](Cell cell, std::uint32_t tag) {
      store_.tell_field_expired(outbox_, shelf(), object(cell), tag);
    });
    for (const Cell cell : cells) {
      for (const std::uint32_t tag : request_.tags) {
        if (!store_.drop_field(shelf(), cell, tag)) break;
      }
    }
    return;
  }
  std::vector<Lifetimes::Ticket> tickets;
  for (Cell& cell : cells) {
    cell = shelf().ensure_extra(cell);
    auto& deadlines = object(cell).extra()->fields;
    deadlines.reserve(deadlines.size() + request_.tags.size());
  }
  for_each_field([&](Cell, std::uint32_t) { tickets.push_back(Lifetimes::make_ticket()); });
  const std::int64_t deadline = store_.now() + request_.lifetime_us;
  for_each_field([&](Cell cell, std::uint32_t tag) {
    store_.set_field_deadline(*object(cell).extra(), tag, deadline, std::move(tickets.back()));
    tickets.pop_back();
  });
}

void Run::del_expire() {
  const std::vector<Cell> cells = matching();
  reply_on_level(cells, VU_MOM_END_DEL_EXPIRE);
  for (const Cell cell : cells) {
    if (Extra* const extra = object(cell).extra()) store_.lifetimes().clear(*extra);
  }
}

void Run::pdel() {
  const std::vector<Cell> cells = matching();
  reply_on_level(cells, VU_MOM_END_PDEL);
  remove_all(cells, VU_MOM_TYPE_DELETED);
}

void Run::scan(bool keys_only) {
  if (!request_.receiver.wanted()) return;
  outbox_.add(session_, std::make_unique<ScanDelivery>(request_.receiver, engine_.store(), shelf(),
                                                       std::string(prefix()), keys_only));
}

void Run::subscribe() {
  std::vector<std::shared_ptr<Subscription>> made;
  auto& own = engine_.subscriptions();
  try {
    made.reserve(request_.subscribers.size());
    for (const Request::Subscriber& subscriber : request_.subscribers) {
      auto subscription = std::make_shared<Subscription>();
      subscription->receiver = subscriber.receiver;
      subscription->session = &session_;
      subscription->number = engine_.next_number();
      subscription->db = request_.db;
      subscription->prefix = prefix();
      subscription->tag = subscriber.tag;
      Notice end;
      end.type_code = VU_MOM_TYPE_SUBSCRIPTION_ENDED;
      end.db = request_.db;
      end.tag = subscriber.tag;
      subscription->end = std::make_unique<EndDelivery>(subscriber.receiver, std::move(end));
      made.push_back(subscription);
      own.emplace(subscription->number, std::make_pair(&shelf(), subscription));
      shelf().watchers.add(subscription);
    }
  } catch (...) {
    for (const auto& subscription : made) {
      shelf().watchers.remove(*subscription);
      own.erase(subscription->number);
    }
    throw;
  }
}

void Run::unsubscribe() {
  std::vector<std::shared_ptr<Subscription>> ending;
  for (const std::uint32_t tag : request_.tags) {
    shelf().watchers.for_each_at(tag, prefix(), [&](const std::shared_ptr<Subscription>& one) {
      if (one->session == &session_) ending.push_back(one);
    });
  }
  const std::int64_t time = store_.calendar();
  for (const auto& subscription : ending) {
    shelf().watchers.remove(*subscription);
    subscription->end->set_time(time);
    session_.post(std::move(subscription->end));
    engine_.subscriptions().erase(subscription->number);
  }
}

void Run::publish() {
  find();  // an object that has ended is told of before what is published
  const std::size_t told =
      tell(VU_MOM_TYPE_PUBLISH, [this] { return Content::of_message(request_.value); });
  reply_integer(static_cast<std::int64_t>(told));
}

}  // namespace vu::store
