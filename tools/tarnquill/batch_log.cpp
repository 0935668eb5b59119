// Lines of one fixed form, so that what was written can be compared as text.
#include "batch_log.h"

#include "errors.h"
#include "system.h"

namespace tool {
namespace {

constexpr char kStatus[] = ", \"status\": \"";

std::string read_text(const std::string& name) {
  std::string text;
  std::FILE* const file = open_file(name, "rb");
  if (file == nullptr) return text;
  char chunk[1 << 12];
  for (std::size_t got = 1; got > 0;) {
    got = std::fread(chunk, 1, sizeof chunk, file);
    text.append(chunk, got);
  }
  std::fclose(file);
  return text;
}

}  // namespace

BatchLog::BatchLog(const std::string& log, const std::string& resume, const std::string& options)
    : name_(log), options_(options) {
  const std::string before = resume.empty() ? "" : read_text(resume);
  for (std::size_t start = 0; start < before.size();) {
    const std::size_t end = std::min(before.find('\n', start), before.size());
    const std::string line = before.substr(start, end - start);
    const std::size_t status = line.rfind(kStatus);
    if (status != std::string::npos) {
      const std::string rest = line.substr(status + sizeof kStatus - 1);
      const bool done = rest.starts_with("converted") || rest.starts_with("damaged");
      done ? static_cast<void>(done_.insert(line.substr(0, status)))
           : static_cast<void>(done_.erase(line.substr(0, status)));
    }
    start = end + 1;
  }
  if (log.empty()) return;
  file_.reset(open_file(log, "ab"));
  if (file_ == nullptr) throw Failure(log, IMG_CANNOT_CREATE);
}

std::string BatchLog::key_of(const std::string& input, const std::string& output) const {
  const FileState state = state_of(input);
  return "{\"input\": " + quoted(input) + ", \"output\": " + quoted(output) +
         ", \"bytes\": " + std::to_string(state.bytes) +
         ", \"modified\": " + std::to_string(state.written) + ", \"options\": " + quoted(options_);
}

void BatchLog::add(const std::string& key, const char* status, const std::string& message) {
  if (file_ == nullptr) return;
  std::string line = key + kStatus + status + "\"";
  if (!message.empty()) line += ", \"message\": " + quoted(message);
  const std::scoped_lock lock(one_at_a_time_);
  // Each line is there when the next input begins, whatever happens to it.
  if (std::fputs((line + "}\n").c_str(), file_.get()) < 0 || std::fflush(file_.get()) != 0) {
    throw Failure(name_, IMG_WRITE_FAILED);
  }
}

}  // namespace tool
