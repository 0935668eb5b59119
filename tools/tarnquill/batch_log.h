// What a batch has done, a line of JSON for each input, and what need not be done again.
#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace tool {

class BatchLog {
 public:
  // Reads `resume` and adds to `log`; either may be empty. Throws Failure.
  BatchLog(const std::string& log, const std::string& resume, const std::string& options);

  // What an input is before it is read: its result holds as long as this is the same.
  std::string key_of(const std::string& input, const std::string& output) const;
  bool is_done(const std::string& key) const { return done_.count(key) != 0; }

  // `message` is empty for success. Any thread may add.
  void add(const std::string& key, const char* status, const std::string& message);

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  std::string name_, options_;
  std::set<std::string> done_;
  std::mutex one_at_a_time_;
  std::unique_ptr<std::FILE, Close> file_;
};

}  // namespace tool
