#include "outputs/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>

#include "log/log.h"

namespace {

enum : int64_t { REDRAW_MS = 100 };

// A log's own stream, behind which the progress line waits to be taken off.
struct cleared_stream {
  progress *line;
  FILE *target;
};
cleared_stream streams[2];

ssize_t write_cleared(void *cookie, const char *text, size_t size) {
  const auto *stream = static_cast<cleared_stream *>(cookie);
  stream->line->clear();
  return static_cast<ssize_t>(fwrite(text, 1, size, stream->target));
}

// Unbuffered, so that each line reaches its target when it would without this.
FILE *open_cleared(cleared_stream *cookie) {
  FILE *stream = fopencookie(
      cookie, "w", {.read = nullptr, .write = write_cleared, .seek = nullptr, .close = nullptr});
  if (stream)
    setvbuf(stream, nullptr, _IONBF, 0);
  return stream;
}

int64_t now_ms() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec * 1000 + now.tv_nsec / 1'000'000;
}

} // namespace

void progress::start(uint64_t bytes_todo) {
  if (!isatty(STDERR_FILENO))
    return;
  streams[0] = {this, g_log->fp};
  streams[1] = {this, g_access_log->fp};
  log_stream = open_cleared(&streams[0]);
  alert_stream = open_cleared(&streams[1]);
  is_on = log_stream && alert_stream;
  if (!is_on)
    return;
  g_log->fp = log_stream;
  g_access_log->fp = alert_stream;
  todo = bytes_todo;
  start_ms = drawn_ms = now_ms();
}

void progress::redraw(size_t bytes) {
  const int64_t now = now_ms();
  if (now - drawn_ms < REDRAW_MS)
    return;
  drawn_ms = now;
  const auto done = static_cast<double>(bytes);
  const double seconds = static_cast<double>(std::max<int64_t>(now - start_ms, 1)) / 1000;
  const double rate = done / seconds;
  char text[96];
  if (todo > bytes) {
    const auto left = static_cast<double>(todo - bytes);
    const auto left_s = static_cast<int64_t>(left / std::max(rate, 1.0));
    snprintf(text, sizeof text,
             "%3.0f %%  %.1f MB/s  alerts: %" PRIu64 "  left: %" PRId64 ":%02" PRId64,
             100 * done / static_cast<double>(todo), rate / 1e6, alerts, left_s / 60, left_s % 60);
  } else {
    snprintf(text, sizeof text, "%.1f MB  %.1f MB/s  alerts: %" PRIu64, done / 1e6, rate / 1e6,
             alerts);
  }
  dprintf(STDERR_FILENO, "\r%s\x1b[K", text);
  is_shown = true;
}

void progress::clear() {
  if (!is_shown)
    return;
  is_shown = false;
  dprintf(STDERR_FILENO, "\r\x1b[K");
}

void progress::finish() {
  if (!is_on)
    return;
  is_on = false;
  g_log->fp = streams[0].target;
  g_access_log->fp = streams[1].target;
  fclose(log_stream);
  fclose(alert_stream);
  clear();
}
