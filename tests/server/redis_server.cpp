#include "redis_server.h"

#include <fcntl.h>
#include <hiredis/hiredis.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace vu::testing {

namespace {

constexpr std::int64_t kStartingTime = 30'000;

std::string text_of(const redisReply* reply) {
  switch (reply->type) {
    case REDIS_REPLY_INTEGER:
      return std::to_string(reply->integer);
    case REDIS_REPLY_NIL:
      return "nil";
    case REDIS_REPLY_ARRAY: {
      std::string text = "[";
      for (std::size_t i = 0; i < reply->elements; ++i) {
        if (i != 0) text += ' ';
        text += text_of(reply->element[i]);
      }
      return text + "]";
    }
    default:
      return std::string(reply->str, reply->len);
  }
}

}  // namespace

Directory::Directory() {
  std::string pattern = (std::filesystem::temp_directory_path() / "vu_server_XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary directory");
  path_ = pattern;
}

Directory::~Directory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::int64_t now_ms() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

void sleep_ms(unsigned milliseconds) { usleep(milliseconds * 1000); }

RedisServer::RedisServer(std::vector<std::string> options, std::uint16_t port)
    : socket_(directory_.path() + "/redis.sock"), port_(port), options_(std::move(options)) {
  start();
}

void RedisServer::start() {
  std::vector<std::string> words = {"redis-server"};
  // Sentinels want a file of their own, which stands in front of the options.
  if (!options_.empty() && options_[0].ends_with(".conf")) words.push_back(options_[0]);
  const std::vector<std::string> fixed = {"--port", std::to_string(port_), "--unixsocket", socket_,
                                          "--dir",  directory_.path(),     "--save",       "",
                                          "--bind", "127.0.0.1",           "--daemonize",  "no"};
  words.insert(words.end(), fixed.begin(), fixed.end());
  for (const std::string& option : options_) {
    if (!option.ends_with(".conf")) words.push_back(option);
  }
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const std::string log = directory_.path() + "/log";
  pid_ = fork();
  if (pid_ == 0) {
    const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(file, 1);
    dup2(file, 2);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  for (const std::int64_t end = now_ms() + kStartingTime; !answers();) {
    if (now_ms() > end || waitpid(pid_, nullptr, WNOHANG) != 0) {
      std::ostringstream told;
      told << std::ifstream(log).rdbuf();
      throw std::runtime_error("redis-server does not start:\n" + told.str());
    }
    sleep_ms(5);
  }
}

bool RedisServer::answers() const {
  try {
    const std::string reply = call({"PING"});
    return reply == "PONG";
  } catch (const std::runtime_error&) {
    return false;
  }
}

void RedisServer::kill() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

void RedisServer::shutdown_save() {
  call({"SAVE"});
  kill();
}

void RedisServer::pause() {
  ::kill(pid_, SIGSTOP);
  waitpid(pid_, nullptr, WUNTRACED);
}

void RedisServer::resume() { ::kill(pid_, SIGCONT); }

std::string RedisServer::url(const std::string& options) const {
  return "redis+unix://" + socket_ + options;
}

std::string RedisServer::call(const std::vector<std::string>& words) const {
  redisContext* const context = redisConnectUnix(socket_.c_str());
  if (context == nullptr || context->err != 0) {
    if (context != nullptr) redisFree(context);
    throw std::runtime_error("no connection to redis-server");
  }
  if (!password_.empty()) {
    freeReplyObject(redisCommand(context, "AUTH %s", password_.c_str()));
  }
  std::vector<const char*> texts;
  std::vector<std::size_t> sizes;
  for (const std::string& word : words) {
    texts.push_back(word.data());
    sizes.push_back(word.size());
  }
  auto* const reply = static_cast<redisReply*>(
      redisCommandArgv(context, static_cast<int>(words.size()), texts.data(), sizes.data()));
  if (reply == nullptr) {
    redisFree(context);
    throw std::runtime_error("no reply from redis-server");
  }
  std::string text = text_of(reply);
  freeReplyObject(reply);
  redisFree(context);
  return text;
}

}  // namespace vu::testing
