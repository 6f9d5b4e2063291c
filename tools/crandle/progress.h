// A one-line progress bar on a terminal's stderr; silent when stderr is not a terminal.
#pragma once

#include <string>

namespace crandle_tool {

class CProgress {
 public:
  CProgress(std::string label, long total);
  ~CProgress();
  void Step();

 private:
  void Draw() const;
  std::string label_;
  long total_;
  long done_ = 0;
  bool enabled_;
};

}  // namespace crandle_tool
