#include "batch.h"

#include <hiredis/hiredis.h>

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

#include "../recycled.h"
#include "command_text.h"
#include "key_names.h"

namespace vu::store {

namespace {

// Of a get: the value, and beside it what tells whether it is one.
constexpr std::string_view kCompanions[] = {"", "!meta", "!live"};

void widen(std::string& text, std::size_t room) {
  if (room <= text.capacity()) return;
  std::string wide = take_text(room);
  wide.append(text);
  text.swap(wide);
  keep_text(std::move(wide));
}

}  // namespace

bool is_for_batch(const Request& request, const Place& place) {
  // Where the time is not the server's, functions see what is over.
  return request.command == Command::kPublish ||
         (request.command == Command::kGet && place.now_us < 0);
}

BatchPart::BatchPart(const Request& request, const Place& place) {
  std::string key = take_text(kUsualKey);
  make_object_key(key, place, request.db, *request.type, request.identity);
  if (request.command == Command::kGet) {
    add_names(key);
  } else {
    keys_ = take_text(key.size() + 16);
    append_word(keys_, key);
    add_event(key, request, place);
  }
  keep_text(std::move(key));
}

BatchPart::~BatchPart() {
  keep_text(std::move(keys_));
  keep_text(std::move(words_));
}

// What a get asks for.
void BatchPart::add_names(std::string_view key) {
  constexpr std::size_t kRoom = 40;  // for a head, the longest companion, the end
  const std::size_t most = std::size(kCompanions) * (key.size() + kRoom);
  keys_ = take_text(most);
  keys_.resize(most);
  char* end = keys_.data();
  const auto put = [&end](std::string_view bytes) {
    end = std::copy(bytes.begin(), bytes.end(), end);
  };
  for (const std::string_view companion : kCompanions) {
    put("$");
    end = std::to_chars(end, end + 20, key.size() + companion.size()).ptr;
    put("\r\n");
    put(key);
    put(companion);
    put("\r\n");
  }
  keys_.resize(static_cast<std::size_t>(end - keys_.data()));
  key_count_ = std::size(kCompanions);
}

// The event behind its time, and the channel of each level of the object under `key`.
void BatchPart::add_event(std::string_view key, const Request& request, const Place& place) {
  // "DB:TYPE:IDENTITY", whose beginnings up to each level are also those of the channels' names.
  const std::string_view name = key.substr(key.find('}', place.prefix.size()) + 2);
  std::size_t end = name.find(':') + 1 + request.type->name.size() + 1;
  const std::size_t channels = request.type->levels() + 1;
  words_ =
      take_text(request.value.size() + (channels + 2) * (name.size() + place.prefix.size() + 16));
  std::string text = take_text(request.value.size() + name.size() + 40);
  text.append("0 m ").append(name.substr(end)).append("\n ");
  append_decimal(text, request.value.size());
  text.append("\n").append(request.value);
  append_word(words_, text);
  text.clear();
  append_decimal(text, channels);
  append_word(words_, text);
  text.clear();
  text.append(place.prefix).append(":o:");
  end += text.size();
  text.append(name);
  for (std::size_t i = 0; i < channels; ++i) {
    append_word(words_, std::string_view(text).substr(0, end));
    end = text.find('/', end) + 1;
  }
  word_count_ = 2 + channels;
  keep_text(std::move(text));
}

Batch::Batch(Command command, unsigned partition)
    : Errand(store::only_reads(command)), command_(command), partition_(partition) {
  weight_ = 0;
}

Batch::~Batch() {
  for (Errand* const errand : errands_) {
    if (errand != nullptr) errand->release();
  }
  keep_text(std::move(keys_));
  keep_text(std::move(words_));
}

bool Batch::takes(Command command) const {
  return command == command_ && weight() < kMost && keys_.size() + words_.size() < kMostBytes;
}

void Batch::add(Errand& errand, const BatchPart& part) {
  // Where there are two, more may come.
  if (weight() == 1) {
    widen(keys_, std::min(kMost * keys_.size() + kFront, kMostBytes));
    widen(words_, std::min(kMost * words_.size(), kMostBytes));
  }
  const std::size_t size = keys_.size();
  keys_.append(part.keys_);
  try {
    words_.append(part.words_);
  } catch (...) {
    keys_.resize(size);
    throw;
  }
  errand.hold();
  errands_[weight_++] = &errand;
  key_count_ += part.key_count_;
  word_count_ += part.word_count_;
}

std::string Batch::take_command(const Place& place) {
  std::string front;
  if (command_ == Command::kGet) {
    append_head(front, '*', 1 + key_count_);
    append_word(front, "MGET");
  } else {
    append_head(front, '*', 3 + key_count_ + 2 + word_count_);
    append_word(front, "FCALL");
    append_word(front, "vu2_publish");
    append_word(front, std::to_string(key_count_));
    append_word(keys_, place.now_us < 0 ? std::string() : std::to_string(place.now_us));
    append_word(keys_, place.is_spread ? "1" : "");
    keys_.append(words_);
  }
  keys_.insert(0, front);
  return std::move(keys_);
}

void Batch::finish(const Outcome& outcome) noexcept {
  const redisReply* const all = outcome.kind == Outcome::Kind::kReply ? outcome.reply : nullptr;
  const bool is_array = all != nullptr && all->type == REDIS_REPLY_ARRAY;
  const bool has_values = is_array && command_ == Command::kGet && all->elements == key_count_;
  const bool has_counts = is_array && command_ != Command::kGet && all->elements == weight();
  for (std::size_t i = 0; i < weight(); ++i) {
    Outcome its_own = outcome;
    redisReply values = {};
    if (has_values) {
      values.type = REDIS_REPLY_ARRAY;
      values.elements = std::size(kCompanions);
      values.element = all->element + i * values.elements;
      its_own.reply = &values;
    } else if (has_counts) {
      its_own.reply = all->element[i];
    }
    Errand* const errand = std::exchange(errands_[i], nullptr);
    errand->finish(its_own);
    errand->release();
  }
}

}  // namespace vu::store
