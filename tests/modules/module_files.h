// Modules beside the test program, where they are looked for first.
#pragma once

#include <filesystem>
#include <string>

#include "include/tarnquill.h"

namespace tq::test {

#ifdef _WIN32
inline constexpr const char* kModuleEnding = ".dll";
#else
inline constexpr const char* kModuleEnding = ".so";
#endif

// Puts the module built as `target` there, or in a folder there, under the name `stem`; gone at the end of the
// scope.
class InstalledModule {
 public:
  InstalledModule(const std::string& target, const std::string& stem, const std::string& in = "")
      : name_(std::filesystem::path(TQ_TEST_PROGRAMS) / in / (stem + kModuleEnding)) {
    std::filesystem::create_directories(name_.parent_path());
    const std::string built_as = target == "pdf_module"   ? "pdfplug"
                                 : target == "ext_module" ? "trqvext"
                                                          : "trqvpl1";
    const auto built = std::filesystem::path(TQ_MODULES) / target / (built_as + kModuleEnding);
    std::filesystem::copy_file(built, name_, std::filesystem::copy_options::overwrite_existing);
  }
  InstalledModule(const InstalledModule&) = delete;
  InstalledModule& operator=(const InstalledModule&) = delete;
  ~InstalledModule() {
    IMG_unload_plugins();
    std::error_code ignored;
    std::filesystem::remove(name_, ignored);
  }

 private:
  std::filesystem::path name_;
};

}  // namespace tq::test
