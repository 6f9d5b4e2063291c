#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace crandle_tool {

CProgress::CProgress(std::string label, long total)
    : label_(std::move(label)), total_(total), enabled_(total > 1 && ::isatty(STDERR_FILENO)) {
  if (enabled_) Draw();
}

CProgress::~CProgress() {
  if (enabled_) std::fputc('\n', stderr);
}

void CProgress::Step() {
  ++done_;
  if (enabled_) Draw();
}

void CProgress::Draw() const {
  constexpr int kWidth = 30;
  const int filled = total_ > 0 ? int(done_ * kWidth / total_) : kWidth;
  std::fprintf(stderr, "\r%s [%.*s%*s] %ld/%ld", label_.c_str(), filled,
               "##############################", kWidth - filled, "", done_, total_);
  std::fflush(stderr);
}

}  // namespace crandle_tool
