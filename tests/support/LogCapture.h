// Sends the log to a string for the length of a scope.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "host/brindlexutil.h"

class LogCapture {
 public:
  LogCapture() { debugOS.attach(&text); }
  ~LogCapture() { debugOS.attach(nullptr); }
  std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    std::istringstream in(text.str());
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

 private:
  std::ostringstream text;
};
