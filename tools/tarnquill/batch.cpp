// Who converts which input, and what came of all.
#include "batch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <set>
#include <thread>

#include "batch_log.h"
#include "codes.h"
#include "conversion.h"
#include "errors.h"
#include "library_options.h"
#include "progress.h"
#include "system.h"

namespace tool {
namespace {

bool shows_bar(const Plan& plan) {
  return !plan.quiet && is_terminal(stderr);
}

// Inputs that are not there are told before a long run begins.
bool look_for_inputs(const Plan& plan) {
  bool all_there = true;
  for (const std::string& input : plan.inputs) {
    if (input == "-" || path_kind(input) != PathKind::absent || is_forbidden(input)) continue;
    complain(Failure(input, IMG_CANNOT_OPEN, "no such file").what());
    all_there = false;
  }
  if (!all_there) complain("nothing was converted");
  return all_there;
}

// Calls `work`; the exit code of what it throws, and what was said.
template <class Work>
int reported(std::string& message, Work&& work) {
  try {
    work();
    return kExitOk;
  } catch (const Failure& failure) {
    complain(message = failure.what());
    return kExitError;
  } catch (const UsageError& error) {
    complain(message = error.what());
    return kExitUsage;
  }
}

[[noreturn]] void refuse_pages(const Plan& plan, const std::string& label, std::size_t count) {
  std::string name = "out-%03d";
  if (plan.out != "-") {
    const std::size_t dot = plan.out.rfind('.');
    const bool has_end = dot != std::string::npos && dot > folder_of(plan.out).size();
    name = has_end ? plan.out.substr(0, dot) + "-%03d" + plan.out.substr(dot) : plan.out + "-%03d";
  }
  throw UsageError(printable(label) + " has " + std::to_string(count) +
                   " pages, and the format holds one: name the results " + printable(name) +
                   ", or choose by --page");
}

// ---- One result of all inputs ----

// What came through a pipe, by its place among the inputs: it cannot be read again.
using Piped = std::vector<InputPointer>;

// False: the file that they are added to has changed meanwhile.
bool convert_to_document(const Plan& plan, Piped& piped, BatchState& state, Progress& progress) {
  std::optional<Output> output;
  const OpenOutput open = [&](const SavePage& page) -> Output& {
    if (output) return *output;
    return plan.appends ? output.emplace(plan.out, page) : output.emplace(plan.out);
  };
  state.done = 0;
  for (std::size_t i = 0; i < plan.inputs.size(); ++i) {
    const std::string label = input_label(plan.inputs[i]);
    progress.begin_file(label);
    within_memory(label, [&] {
      InputPointer input = piped[i] ? piped[i] : std::make_shared<const Input>(plan.inputs[i]);
      if (plan.appends && input->in_memory()) piped[i] = input;
      const std::vector<int> pages = wanted_pages(plan, *input);
      if (!plan.has_pages && pages.size() > 1) refuse_pages(plan, label, pages.size());
      for (const int page : pages) {
        // The last one lets go of the file before the result takes its place.
        const bool last = &page == &pages.back();
        convert_page(plan, last ? std::move(input) : input, page, progress, open);
        if (interrupted() != 0) throw Failure(label, kInterrupted);
      }
    });
    ++state.done;
  }
  if (!output->commit()) return false;
  if (plan.keep_dates) copy_date(plan.inputs.back(), plan.out);
  return true;
}

int make_document(const Plan& plan) {
  if (plan.no_clobber && !plan.appends && plan.out != "-" &&
      path_kind(plan.out) == PathKind::file) {
    if (!plan.quiet) complain(printable(plan.out) + " is there already");
    return kExitOk;
  }
  BatchState state{plan.inputs.size()};
  Progress progress(shows_bar(plan), &state);
  std::string message;
  return reported(message, [&] {
    Piped piped(plan.inputs.size());
    while (!convert_to_document(plan, piped, state, progress)) {
    }
  });
}

// ---- Results of their own ----

// A thread's own state in the library, with the options and settings of the command line.
class JobContext {
 public:
  JobContext(const Arguments& arguments, const Plan& plan)
      : context_(check("a job", IMG_new_context())) {
    IMG_use_context(context_);
    apply_library_options(arguments);
    apply_settings(arguments, plan);
  }
  ~JobContext() {
    IMG_use_context(0);
    IMG_delete_context(context_);
  }
  JobContext(const JobContext&) = delete;
  JobContext& operator=(const JobContext&) = delete;

 private:
  std::int32_t context_;
};

class Batch {
 public:
  Batch(const Arguments& arguments, const Plan& plan)
      : arguments_(arguments),
        plan_(plan),
        log_(plan.log, plan.resume, plan.options),
        state_{plan.inputs.size()} {}

  int run() {
    find_doubles();
    const auto jobs =
        static_cast<int>(std::min(static_cast<std::size_t>(plan_.jobs), plan_.inputs.size()));
    Progress progress(shows_bar(plan_), &state_);
    if (jobs <= 1 || plan_.kind == Plan::Out::numbered) {  // numbers go from input to input
      work(progress);
    } else {
      work_together(jobs);
    }
    Progress::clear();
    if (plan_.inputs.size() > 1 && !plan_.quiet) say(closing_line());
    return code_;
  }

 private:
  enum class Outcome { converted, damaged, failed, passed_over };

  void find_doubles() {
    if (plan_.kind != Plan::Out::folder) return;
    std::set<std::string> names;
    doubles_.resize(plan_.inputs.size());
    for (std::size_t i = 0; i < plan_.inputs.size(); ++i) {
      doubles_[i] = !names.insert(name_for(plan_.inputs[i])).second;
    }
  }

  void work(Progress& progress) {
    for (std::size_t i = next_++; i < plan_.inputs.size() && interrupted() == 0; i = next_++) {
      convert_input(i, progress);
      ++state_.done;
    }
  }

  void work_together(int jobs) {
    set_library_temporary_folder(folder_of(name_for("")));
    std::vector<std::jthread> threads;
    for (int i = 0; i < jobs; ++i) {
      threads.emplace_back([&] {
        std::string message;
        const int begun = reported(message, [&] {
          const JobContext context(arguments_, plan_);
          Progress progress(shows_bar(plan_), &state_);
          work(progress);
        });
        raise(begun);
      });
    }
  }

  void raise(int code) {
    for (int now = code_; now < code && !code_.compare_exchange_weak(now, code);) {
    }
  }

  std::string name_for(const std::string& input) const {
    if (plan_.kind != Plan::Out::folder) return plan_.out;
    const auto type = find_code(plan_.code);
    std::string name = plan_.out;
    if (!is_separator(name.back())) name += '/';
    name += input == "-" ? "stdin" : stem_of(input);
    return type ? name + "." + ending_of(*type) : name;
  }

  // Behind the name of a file the number of a page.
  static std::string page_name(const std::string& name, int page) {
    const std::size_t dot = name.rfind('.');
    return name.substr(0, dot) + numbered_name("-%03d", page + 1) + name.substr(dot);
  }

  void convert_input(std::size_t i, Progress& progress) {
    const std::string& from = plan_.inputs[i];
    const std::string name = name_for(from);
    const std::string key = log_.key_of(from, name);
    if (log_.is_done(key) && has_result(name)) {
      ++counts_[static_cast<int>(Outcome::passed_over)];
      return;
    }
    Outcome outcome = Outcome::failed;
    std::string message;
    raise(reported(message, [&] {
      progress.begin_file(input_label(from));
      if (!doubles_.empty() && doubles_[i]) throw double_result(from, name);
      within_memory(input_label(from), [&] { outcome = convert_pages(from, name, progress); });
    }));
    ++counts_[static_cast<int>(outcome)];
    constexpr const char* kNames[] = {"converted", "damaged", "failed", "passed over"};
    log_.add(key, kNames[static_cast<int>(outcome)], message);
  }

  bool has_result(const std::string& name) const {
    return path_kind(name) == PathKind::file || !plan_.pages.all() ||
           path_kind(page_name(name, 0)) == PathKind::file;
  }

  static Failure double_result(const std::string& from, const std::string& name) {
    return Failure(from, IMG_CANNOT_CREATE, name + " is already the result of another input");
  }

  Outcome convert_pages(const std::string& from, const std::string& name, Progress& progress) {
    auto input = std::make_shared<const Input>(from);
    const std::vector<int> pages = wanted_pages(plan_, *input);
    const bool one_result = plan_.has_pages && plan_.kind == Plan::Out::folder;
    const bool numbered = plan_.kind == Plan::Out::numbered || (!one_result && pages.size() > 1);
    bool damaged = false, written = false;
    std::optional<Output> output;
    for (std::size_t i = 0; i < pages.size(); ++i) {
      const std::string to = plan_.kind == Plan::Out::numbered ? numbered_name(name, ++number_)
                             : numbered                        ? page_name(name, pages[i])
                                                               : name;
      if (!output && plan_.no_clobber && path_kind(to) == PathKind::file) continue;
      const bool last = i + 1 == pages.size();
      const OpenOutput open = [&](const SavePage&) -> Output& {
        return output ? *output : output.emplace(to);
      };
      damaged |= convert_page(plan_, last ? std::move(input) : input, pages[i], progress, open);
      if (one_result && !last) continue;
      if (!claim(to)) throw double_result(from, to);
      static_cast<void>(output->commit());  // nothing that could have changed
      output.reset();
      if (plan_.keep_dates && from != "-") copy_date(from, to);
      written = true;
    }
    if (!written) return Outcome::passed_over;
    return damaged ? Outcome::damaged : Outcome::converted;
  }

  bool claim(const std::string& name) {
    const std::scoped_lock lock(names_);
    return claimed_.insert(name).second;
  }

  std::string closing_line() const {
    const auto count = [&](Outcome outcome) {
      return static_cast<std::size_t>(counts_[static_cast<int>(outcome)]);
    };
    const std::size_t damaged = count(Outcome::damaged);
    std::string line = std::to_string(count(Outcome::converted) + damaged) + " converted";
    if (damaged > 0) line += ", " + std::to_string(damaged) + " of them damaged";
    for (const auto& [outcome, name] :
         {std::pair(Outcome::failed, "failed"), std::pair(Outcome::passed_over, "passed over")}) {
      if (count(outcome) > 0) line += ", " + std::to_string(count(outcome)) + " " + name;
    }
    return line;
  }

  const Arguments& arguments_;
  const Plan& plan_;
  BatchLog log_;
  BatchState state_;
  std::vector<bool> doubles_;  // of inputs whose result another one before has
  std::atomic<std::size_t> next_ = 0;
  std::atomic<int> code_ = kExitOk;
  std::array<std::atomic<std::size_t>, 4> counts_{};  // by outcome
  int number_ = 0;                                    // of the last result with a number
  std::mutex names_;
  std::set<std::string> claimed_;
};

}  // namespace

int carry_out(const Arguments& arguments, const Plan& plan) {
  if (plan.inputs.size() > 1 && !look_for_inputs(plan)) return kExitError;
  if (plan.kind == Plan::Out::folder && path_kind(plan.out) == PathKind::absent &&
      !make_folder(plan.out)) {
    throw Failure(plan.out, IMG_CANNOT_CREATE);
  }
  if (plan.kind == Plan::Out::file) return make_document(plan);
  return Batch(arguments, plan).run();
}

}  // namespace tool
