#include "reader/list/overwrite_prompt.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "log/logger.h"

namespace tamrix {

namespace {

constexpr int kStopCheckMs = 500;

enum class Line { kAnswer, kEmpty, kEnd, kStopped };

bool isBlank(char c) { return c == ' ' || ('\t' <= c && c <= '\r'); }

// Reads one line byte by byte (what follows it belongs to the next question) and keeps only its first
// non-blank character, so a line of any length will do.
Line readLine(const StopFlag& stop, char& first) {
  bool answered = false;
  for (;;) {
    if (stop.isSet()) return Line::kStopped;
    pollfd input{STDIN_FILENO, POLLIN, 0};
    const int ready = poll(&input, 1, kStopCheckMs);
    if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
    char c = 0;
    const ssize_t n = read(STDIN_FILENO, &c, 1);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (n <= 0) return answered ? Line::kAnswer : Line::kEnd;
    if (c == '\n') return answered ? Line::kAnswer : Line::kEmpty;
    if (!answered && !isBlank(c)) {
      answered = true;
      first = c;
    }
  }
}

}  // namespace

OverwriteAnswer askOverwrite(const std::string& destination, const StopFlag& stop) {
  const bool isTyped = isatty(STDIN_FILENO) != 0;
  char first = 0;
  Line line = Line::kEmpty;
  while (line == Line::kEmpty) {
    logger->prompt(msg::kCopyListOverwrite, destination);
    line = readLine(stop, first);
    // On a terminal, the line end that ended the answer has ended the question's line as well.
    logger->console().answered(isTyped && (line == Line::kAnswer || line == Line::kEmpty));
  }
  if (line == Line::kStopped) return OverwriteAnswer::kStopped;
  if (line == Line::kEnd || first == 'n' || first == 'N') return OverwriteAnswer::kNo;
  return first == 'a' ? OverwriteAnswer::kAll : OverwriteAnswer::kYes;
}

}  // namespace tamrix
