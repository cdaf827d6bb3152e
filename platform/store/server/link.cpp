#include "link.h"

#include <hiredis/hiredis.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "protocol.h"

namespace vu::store {

namespace {

constexpr std::int64_t kFirstPause = 10'000;
constexpr std::int64_t kLongestPause = 1'000'000;

std::string name_of(const Endpoint& endpoint) {
  if (!endpoint.path.empty()) return endpoint.path;
  const bool is_v6 = endpoint.host.find(':') != std::string::npos;
  const std::string host = is_v6 ? '[' + endpoint.host + ']' : endpoint.host;
  return host + ':' + std::to_string(endpoint.port);
}

std::string_view words_of(const redisReply& reply) {
  return reply.str == nullptr ? std::string_view() : std::string_view(reply.str, reply.len);
}

bool is_text(const redisReply* reply) {
  return reply != nullptr && reply->type == REDIS_REPLY_STRING;
}

}  // namespace

void Link::Talk::add_login(const std::string& user, const std::string& password) {
  if (!user.empty()) {
    add(Step::kLogin, {"AUTH", user, password});
  } else if (!password.empty()) {
    add(Step::kLogin, {"AUTH", password});
  }
}

void Link::Talk::add(Step step, const std::vector<std::string_view>& words) {
  append_command(bytes, words);
  steps.push_back(step);
}

Link::Link(const Address& address, const Endpoint& endpoint, Use use, uv_loop_t* loop, Owner& owner)
    : owner_(owner),
      connection_(loop, *this),
      timer_(
          loop, [](void* self) { static_cast<Link*>(self)->on_time(); }, this),
      connect_timeout_us_(address.connect_timeout_us),
      uses_sentinels_(address.kind == Address::Kind::kSentinel),
      master_(address.master),
      endpoint_(endpoint),
      name_(name_of(endpoint)),
      random_(static_cast<std::uint32_t>(uv_hrtime()) | 1) {
  if (uses_sentinels_) {
    sentinels_ = address.endpoints;
    name_ = "the master '" + master_ + "'";
    to_sentinel_.add_login(address.sentinel_user, address.sentinel_password);
    to_sentinel_.add(Step::kFindMaster, {"SENTINEL", "get-master-addr-by-name", master_});
    to_sentinel_.first_bytes = to_sentinel_.bytes.size();
  }
  if (address.kind == Address::Kind::kCluster && use == Use::kEvents) {
    for (const Endpoint& other : address.endpoints) {
      if (!(other == endpoint)) others_.emplace_back(other, name_of(other));
    }
  }
  to_server_.add_login(address.user, address.password);
  if (address.database != 0) {
    to_server_.add(Step::kDatabase, {"SELECT", std::to_string(address.database)});
  }
  if (uses_sentinels_) to_server_.add(Step::kRole, {"ROLE"});
  to_server_.add(Step::kPing, {"PING"});
  // A server takes nothing that long from somebody whom it does not know yet.
  to_server_.first_steps = to_server_.steps.size();
  to_server_.first_bytes = to_server_.bytes.size();
  if (use == Use::kCommands) {
    to_server_.add(Step::kLibrary, {"FUNCTION", "LOAD", function_library()});
  }
}

void Link::open() noexcept {
  if (state_ != State::kIdle) return;
  sentinels_asked_ = 0;
  has_sentinel_said_ = false;
  begin();
}

void Link::close() noexcept {
  state_ = State::kIdle;
  timer_.stop();
  connection_.close();
}

void Link::drop() noexcept {
  if (state_ != State::kIdle) wait();
}

// ---- One attempt -------------------------------------------------------------------

void Link::begin() noexcept {
  is_talking_ = false;
  is_second_look_ = false;
  due_us_ = steady_us() + connect_timeout_us_;
  timer_.start(connect_timeout_us_);
  state_ = uses_sentinels_ ? State::kFinding : State::kConnecting;
  connection_.open(uses_sentinels_ ? sentinels_[sentinel_] : endpoint_);
}

// The next attempt comes after a pause, each longer than the one before.
void Link::wait() noexcept {
  connection_.close();
  sentinels_asked_ = 0;
  has_sentinel_said_ = false;
  if (state_ == State::kUp) {
    was_lost_ = true;
    if (steady_us() - up_us_ >= kLongestPause) failures_ = 0;
  }
  if (!others_.empty()) {
    std::swap(endpoint_, others_[next_other_].first);
    std::swap(name_, others_[next_other_].second);
    next_other_ = (next_other_ + 1) % others_.size();
  }
  state_ = State::kWaiting;
  const std::int64_t pause = std::min(kFirstPause << std::min(failures_, 10U), kLongestPause);
  ++failures_;
  random_ ^= random_ << 13;  // so that many clients do not come back at once
  random_ ^= random_ >> 17;
  random_ ^= random_ << 5;
  timer_.start(pause - pause / 4 + static_cast<std::int64_t>(random_ % 512) * pause / 1024);
}

void Link::on_time() noexcept {
  if (state_ == State::kWaiting) {
    begin();
    return;
  }
  if (state_ != State::kFinding && state_ != State::kConnecting) return;
  if (!is_second_look_) {  // the loop may have been away: it has as long as it was late
    is_second_look_ = true;
    timer_.start(std::max(UvTimer::kSecondLook, steady_us() - due_us_));
    return;
  }
  connection_.close();
  end("no answer in time", false);
}

void Link::explain(const char* what, const char* reason) noexcept {
  if (state_ == State::kFinding) {
    std::snprintf(reason_.data(), reason_.size(), "no Sentinel names the master '%s': %s",
                  master_.c_str(), reason);
  } else {
    std::snprintf(reason_.data(), reason_.size(), "%s %s: %s", what, name_.c_str(), reason);
  }
}

// Whether there is a Sentinel that has not been asked in this attempt; begins with it.
bool Link::ask_next_sentinel() noexcept {
  sentinel_ = (sentinel_ + 1) % sentinels_.size();
  if (++sentinels_asked_ >= sentinels_.size()) return false;
  connection_.close();
  begin();
  return true;
}

// The connection is closed, or is about to be.
void Link::end(const char* reason, bool is_refused) noexcept {
  // What a Sentinel has said tells more than that another one is not there.
  if (state_ != State::kFinding || !has_sentinel_said_) {
    explain(state_ == State::kUp ? "lost" : "cannot reach", reason);
  }
  if (state_ == State::kFinding && ask_next_sentinel()) return;
  wait();
  owner_.on_down(reason_.data(), is_refused);
}

// ---- What a connection tells -------------------------------------------------------

void Link::on_connected() noexcept {
  is_talking_ = true;
  said_ = 0;
  answered_ = 0;
  talk();
}

void Link::talk() noexcept {
  Talk& talk = state_ == State::kFinding ? to_sentinel_ : to_server_;
  const bool may_say_all = answered_ >= talk.first_steps;
  const std::size_t end = may_say_all ? talk.bytes.size() : talk.first_bytes;
  if (said_ == end) return;
  const iovec part = {talk.bytes.data() + said_, end - said_};
  said_ += connection_.write(&part, 1);
}

void Link::on_writable() noexcept {
  if (state_ == State::kUp) {
    owner_.on_writable();
  } else if (is_talking_) {
    talk();
  }
}

void Link::on_reply(const redisReply& reply) noexcept {
  if (state_ == State::kUp) {
    owner_.on_reply(reply);
    return;
  }
  const Talk& talk = state_ == State::kFinding ? to_sentinel_ : to_server_;
  if (answered_ == talk.steps.size()) {
    end("it said what nobody has asked for", false);
    return;
  }
  if (!check(talk.steps[answered_], reply)) return;
  if (++answered_ < talk.steps.size()) {
    if (answered_ == talk.first_steps) this->talk();
    return;
  }
  timer_.stop();
  state_ = State::kUp;
  up_us_ = steady_us();
  if (std::exchange(was_lost_, false)) ++reconnects_;
  owner_.on_up();
}

// False where the attempt has ended or goes on elsewhere.
bool Link::check(Step step, const redisReply& reply) noexcept {
  const std::string_view text = words_of(reply);
  const bool is_error = reply.type == REDIS_REPLY_ERROR;
  if (step == Step::kFindMaster) {
    go_to(reply);
    return false;
  }
  if (is_error && state_ == State::kFinding) {
    end_finding(reply.str, true);
    return false;
  }
  if (is_error) {
    const bool passes =
        text.starts_with("LOADING") || text.starts_with("ERR max number of clients");
    const bool is_shut = text.starts_with("NOAUTH") || text.starts_with("DENIED");
    // Whatever else it says against the library, the functions that run say it better.
    if (step == Step::kLibrary && !passes && !is_shut) return true;
    const bool is_login = step == Step::kLogin || step == Step::kDatabase;
    end(reply.str, !passes && (is_login || is_shut || text.starts_with("NOPERM")));
    return false;
  }
  if (step == Step::kRole) {
    const bool is_master = reply.type == REDIS_REPLY_ARRAY && reply.elements != 0 &&
                           is_text(reply.element[0]) && words_of(*reply.element[0]) == "master";
    if (!is_master) end("the server that the Sentinels name is no master", false);
    return is_master;
  }
  if (step == Step::kLibrary ? !is_text(&reply) : reply.type != REDIS_REPLY_STATUS) {
    end("it does not answer as a server does", false);
    return false;
  }
  return true;
}

// A Sentinel does not help.
void Link::end_finding(const char* said, bool is_refused) noexcept {
  explain("", said);
  has_sentinel_said_ = true;
  end(said, is_refused);
}

// What a Sentinel has said about the master.
void Link::go_to(const redisReply& reply) noexcept {
  const bool is_place = reply.type == REDIS_REPLY_ARRAY && reply.elements == 2 &&
                        is_text(reply.element[0]) && is_text(reply.element[1]);
  if (!is_place) {
    const char* const said = reply.type == REDIS_REPLY_ERROR ? reply.str
                             : reply.type == REDIS_REPLY_NIL ? "it does not know it"
                                                             : "it does not answer as one does";
    end_finding(said, std::strncmp(said, "NOAUTH", 6) == 0);
    return;
  }
  try {
    Endpoint found;
    found.host = words_of(*reply.element[0]);
    found.port = static_cast<std::uint16_t>(std::strtoul(reply.element[1]->str, nullptr, 10));
    std::string name = "the master '" + master_ + "' at " + name_of(found);
    endpoint_ = std::move(found);
    name_ = std::move(name);
  } catch (const std::bad_alloc&) {
    end("out of memory", false);
    return;
  }
  connection_.close();
  is_talking_ = false;
  state_ = State::kConnecting;
  connection_.open(endpoint_);
}

void Link::on_closed(const char* reason) noexcept { end(reason, false); }

}  // namespace vu::store
