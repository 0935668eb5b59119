// The commands of the program; main.cpp has the table of them.
#pragma once

#include <span>

#include "options.h"

namespace tool {

struct Command {
  const char* name;
  const char* operands;     // for the usage line
  const char* summary;      // one line
  const char* explanation;  // further paragraphs of the help text
  std::span<const Option> options;
  int (*run)(const Arguments& arguments);  // the exit code; throws UsageError, Failure
};

extern const Command kFormats;
extern const Command kInfo;
extern const Command kConvert;
extern const Command kAppend;
extern const Command kExtract;
extern const Command kPages;
extern const Command kTags;
extern const Command kDither;
extern const Command kGray;
extern const Command kReduce;
extern const Command kThreshold;
extern const Command kPromote;
extern const Command kFlip;
extern const Command kMirror;
extern const Command kInvert;
extern const Command kOrient;
extern const Command kRotate;
extern const Command kCrop;
extern const Command kExtend;
extern const Command kResize;
extern const Command kSheet;
extern const Command kScan;

// Writes "tarnquill: MESSAGE" to standard error.
void complain(const std::string& message);

// Standard output is done; `code`, or kExitError and a complaint when it could not be written.
int flushed(int code);

}  // namespace tool
