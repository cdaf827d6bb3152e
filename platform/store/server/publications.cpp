#include "publications.h"

#include <hiredis/hiredis.h>

#include <utility>

#include "../recycled.h"
#include "command_text.h"
#include "key_names.h"

namespace vu::store {

Publication::Publication(const Request& request, const Place& place)
    : key(take_text()), words(take_text()) {
  make_object_key(key, place, request.db, *request.type, request.identity);
  // "DB:TYPE:IDENTITY", whose beginnings up to each level are also those of the channels' names.
  const std::string_view name =
      std::string_view(key).substr(key.find('}', place.prefix.size()) + 2);
  std::size_t end = name.find(':') + 1 + request.type->name.size() + 1;
  std::string text = take_text();
  text.append("0 m ").append(name.substr(end)).append("\n ");
  append_decimal(text, request.value.size());
  text.append("\n").append(request.value);
  append_word(words, text);
  const std::size_t channels = request.type->levels() + 1;
  text.clear();
  append_decimal(text, channels);
  append_word(words, text);
  text.clear();
  text.append(place.prefix).append(":o:");
  end += text.size();
  text.append(name);
  for (std::size_t i = 0; i < channels; ++i) {
    append_word(words, std::string_view(text).substr(0, end));
    end = text.find('/', end) + 1;
  }
  count = 2 + channels;
  keep_text(std::move(text));
}

Publication::~Publication() {
  keep_text(std::move(key));
  keep_text(std::move(words));
}

Publications::~Publications() {
  for (Errand* const errand : errands_) {
    if (errand != nullptr) errand->release();
  }
}

void Publications::add(Errand& errand, const Publication& publication) {
  const std::size_t size = keys_.size();
  append_word(keys_, publication.key);
  try {
    words_.append(publication.words);
  } catch (...) {
    keys_.resize(size);
    throw;
  }
  errand.hold();
  errands_[weight_++] = &errand;
  word_count_ += publication.count;
}

std::string Publications::command(const Place& place) const {
  std::string text;
  text.reserve(128 + keys_.size() + words_.size());
  append_head(text, '*', 3 + weight() + 2 + word_count_);
  append_word(text, "FCALL");
  append_word(text, "vu1_publish");
  append_word(text, std::to_string(weight()));
  text.append(keys_);
  append_word(text, place.now_us < 0 ? std::string() : std::to_string(place.now_us));
  append_word(text, place.is_spread ? "1" : "");
  return text.append(words_);
}

void Publications::finish(const Outcome& outcome) noexcept {
  const bool has_one_each = outcome.kind == Outcome::Kind::kReply &&
                            outcome.reply->type == REDIS_REPLY_ARRAY &&
                            outcome.reply->elements == weight();
  for (std::size_t i = 0; i < weight(); ++i) {
    Outcome its_own = outcome;
    if (has_one_each) its_own.reply = outcome.reply->element[i];
    Errand* const errand = std::exchange(errands_[i], nullptr);
    errand->finish(its_own);
    errand->release();
  }
}

}  // namespace vu::store
