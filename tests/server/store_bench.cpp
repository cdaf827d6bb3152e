#include "store_bench.h"

#include <hiredis/hiredis.h>

#include <cstdlib>
#include <stdexcept>

#include "batch.h"
#include "identity.h"
#include "message_bytes.h"
#include "wire.h"

namespace vu::testing {

namespace {

using store::Content;
using store::Notice;
using store::TypeInfo;

redisContext* connect(const RedisServer& server) {
  redisContext* const context = redisConnectUnix(server.socket().c_str());
  if (context == nullptr || context->err != 0) throw std::runtime_error("no connection");
  return context;
}

Reply ask(redisContext* context, const std::string& command) {
  redisAppendFormattedCommand(context, command.data(), command.size());
  void* reply = nullptr;
  if (redisGetReply(context, &reply) != REDIS_OK) throw std::runtime_error(context->errstr);
  return Reply(static_cast<redisReply*>(reply));
}

std::string command_of(const std::vector<std::string_view>& words) {
  std::string command;
  store::append_command(command, words);
  return command;
}

std::string message_text(const Content& content, std::size_t index, const Notice& notice,
                         const TypeInfo& type) {
  const auto message = store::restore(type, content.items[index], notice.identity);
  return message ? '{' + store::test::text_of(*message) + '}' : "unreadable";
}

}  // namespace

void FreeReply::operator()(redisReply* reply) const { freeReplyObject(reply); }

Reply parse(const std::string& bytes) {
  redisReader* const reader = redisReaderCreate();
  redisReaderFeed(reader, bytes.data(), bytes.size());
  void* reply = nullptr;
  const int status = redisReaderGetReply(reader, &reply);
  redisReaderFree(reader);
  if (status != REDIS_OK || reply == nullptr) throw std::runtime_error("no reply: " + bytes);
  return Reply(static_cast<redisReply*>(reply));
}

Request request(Command command, const std::string& type, const std::string& text) {
  const auto message = store::test::make_message(type, text);
  Request request(command);
  request.type = store::type_of(*message);
  request.identity = store::identity_of(*message, *request.type);
  std::string bytes;
  store::serialise(*message, *request.type, bytes);
  store::store_bytes(*message, *request.type, request.value);
  request.level = request.type->levels();
  store::WireReader reader(bytes);
  for (store::WireRecord record; reader.next(record);) {
    if (!request.fields.empty() && request.fields.back().number == record.number) {
      request.fields.back().records.append(record.bytes);
    } else {
      request.fields.push_back({record.number, std::string(record.bytes)});
    }
  }
  return request;
}

std::string show(const Notice& notice, const TypeInfo& type) {
  if (notice.status != VU_MOM_OK) return "error: " + notice.error;
  std::string text = std::to_string(notice.type_code);
  if (notice.tag != 0) text += " field " + std::to_string(notice.tag);
  if (notice.end_mark != 0) {
    text += " end " + std::to_string(notice.end_mark) + " of " + std::to_string(notice.count);
  }
  const Content& content = notice.content;
  switch (content.form) {
    case Content::Form::kNothing:
      break;
    case Content::Form::kInteger:
      text += " = " + std::to_string(content.integer);
      break;
    case Content::Form::kScore:
      text += " = " + std::to_string(content.score);
      break;
    default:
      for (std::size_t i = 0; i < content.items.size(); ++i) {
        text += ' ' + message_text(content, i, notice, type);
        if (!content.scores.empty()) text += '@' + std::to_string(content.scores[i]);
      }
  }
  if (content.form == Content::Form::kHash) {
    text += " tags";
    for (const std::uint32_t tag : content.tags) text += ' ' + std::to_string(tag);
  }
  return text;
}

StoreBench::StoreBench() : commands_(connect(server)), events_(connect(server)) {
  const Reply loaded = send(command_of({"FUNCTION", "LOAD", "REPLACE", store::function_library()}));
  if (loaded->type == REDIS_REPLY_ERROR) throw std::runtime_error(loaded->str);
}

StoreBench::~StoreBench() {
  redisFree(events_);
  redisFree(commands_);
}

Reply StoreBench::send(const std::string& command) { return ask(commands_, command); }

std::string StoreBench::run(const Request& request) {
  if (store::is_for_batch(request, place)) return run_batch({request}).front();
  const Reply reply = send(store::encode(request, place, -1));
  return show_outcome(request, *reply);
}

std::vector<std::string> StoreBench::run_batch(const std::vector<Request>& requests) {
  // Shows the outcome of one of them.
  struct Shown : store::Errand {
    Shown(const Request& its, std::vector<std::string>& lines)
        : Errand(false), request(its), shown(lines) {}
    void finish(const store::Outcome& outcome) noexcept override {
      shown.push_back(show_outcome(request, *outcome.reply));
    }
    const Request& request;
    std::vector<std::string>& shown;
  };
  std::vector<std::string> shown;
  auto& all = *new store::Batch(requests.front().command, 0);
  const store::ErrandHold hold(all);
  for (const Request& request : requests) {
    auto& one = *new Shown(request, shown);
    const store::ErrandHold hold_one(one);
    all.add(one, store::BatchPart(request, place));
  }
  const Reply reply = send(all.take_command(place));
  store::Outcome outcome;
  outcome.reply = reply.get();
  all.finish(outcome);
  return shown;
}

std::string StoreBench::show_outcome(const Request& request, const redisReply& reply) {
  store::ByteList identities;
  const Notice notice = store::decode(request, reply, 0, identities);
  std::string text;
  for (std::size_t i = 0; i < identities.size(); ++i) {
    text += store::identity_text(identities[i]) + ' ';
  }
  return text + show(notice, *request.type);
}

void StoreBench::watch(const std::string& type, const std::string& text, std::uint32_t level,
                       std::uint32_t tag) {
  const Request named = request(Command::kSubscribe, type, text);
  const std::string_view identity = named.identity;
  const std::string channel = store::channel_of(
      place, 0, *named.type, identity.substr(0, store::prefix_size(identity, level)), tag != 0);
  watched_.push_back({channel, named.type, tag});
  ask(events_, command_of({"SUBSCRIBE", channel}));
}

template <typename Visit>
void StoreBench::take_messages(Visit visit) {
  redisAppendFormattedCommand(events_, "*1\r\n$4\r\nPING\r\n", 14);
  while (true) {
    void* taken = nullptr;
    if (redisGetReply(events_, &taken) != REDIS_OK) throw std::runtime_error(events_->errstr);
    const Reply reply(static_cast<redisReply*>(taken));
    if (std::string(reply->element[0]->str) == "pong") return;
    const redisReply& channel = *reply->element[1];
    const redisReply& message = *reply->element[2];
    visit(std::string(channel.str, channel.len), std::string(message.str, message.len));
  }
}

std::vector<std::string> StoreBench::told() {
  std::vector<std::string> lines;
  take_messages([&](const std::string& channel, const std::string& message) {
    for (const Watched& watched : watched_) {
      if (watched.channel != channel) continue;
      std::vector<Notice> notices;
      if (!store::decode_event(*watched.type, 0, message, watched.tag, notices)) {
        lines.push_back("unreadable: " + message);
      }
      for (const Notice& notice : notices) lines.push_back(show(notice, *watched.type));
    }
  });
  return lines;
}

std::vector<std::string> StoreBench::heard() {
  std::vector<std::string> messages;
  take_messages(
      [&](const std::string&, const std::string& message) { messages.push_back(message); });
  return messages;
}

}  // namespace vu::testing
