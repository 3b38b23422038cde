// What a log is made of, and what the suite's own programs need beside the operations of api.h.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "log/api.h"
#include "log/levels.h"

// Tag made of the first 7 characters of `text`.
n64_tag mk_n64_tag(std::string_view text);

struct syslog_cfg {
  bool enabled;
  int option; // of openlog(3)
  int facility;
};

struct log_ctx {
  uint32_t time_format; // time-stamp flags
  FILE *fp;             // where lines go; not owned until log_close() is asked to close it
  FILE *mirror_fp;      // second stream for every line, or null; not owned
  pid_t pid;            // printed in each line when at least 1
  n64_tag group;        // printed in each line when non-zero
  syslog_cfg syslg;
};

FILE *log_fp(const log_ctx *ctx);

// Keeps the stream of a log and its mirror for the calling thread, for a line or a block of lines.
// They are always locked in one order, so that two logs may mirror into each other's streams.
class log_hold {
public:
  explicit log_hold(const log_ctx *ctx);
  ~log_hold();
  log_hold(const log_hold &) = delete;
  log_hold &operator=(const log_hold &) = delete;

private:
  FILE *first, *second; // or null
};

// Ends what config_syslog() began.
void disable_syslog(log_ctx *ctx);
