#include "tsa/audit_clips.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "input/byte_source.h"
#include "input/framing.h"
#include "outputs/audit_words.h"
#include "outputs/json_text.h"
#include "outputs/table_packets.h"

namespace {

constexpr size_t PART = 64 << 10;
enum { CHANGED = -1 }; // beside the errnos

bool refuse(const char *what, const char *path, const char *why) {
  fprintf(stderr, "Cannot %s [%s]: %s\n", what, path, why);
  return false;
}

bool is_as_before(const struct stat &then, const struct stat &now) {
  return then.st_dev == now.st_dev && then.st_ino == now.st_ino && then.st_size == now.st_size &&
         then.st_mtim.tv_sec == now.st_mtim.tv_sec && then.st_mtim.tv_nsec == now.st_mtim.tv_nsec;
}

struct clip_name {
  char text[96];
};

// "00h01m02.345s-CC-LOSS-PID257+2.ts": when and what the first finding was, and how many follow.
clip_name name_of(const clip &c) {
  std::string when = clock_time(std::max(0.0, c.time), 2, "");
  for (const char *unit : {"h", "m"})
    when.replace(when.find(':'), 1, unit);
  char pid[16] = "", more[24] = "";
  if (c.pid >= 0)
    snprintf(pid, sizeof pid, "-PID%d", c.pid);
  if (c.findings > 1)
    snprintf(more, sizeof more, "+%" PRIu64, c.findings - 1);
  clip_name name;
  snprintf(name.text, sizeof name.text, "%ss-%s%s%s.ts", when.c_str(), audit_kind_name(c.kind), pid,
           more);
  return name;
}

class clip_maker {
public:
  clip_maker(const clip_target &wanted, const clip_range &read)
      : target(wanted), range(read), packets(source, read.packet_size) {}
  ~clip_maker() {
    if (fd != -1)
      close(fd);
  }

  // Returns 0 or an errno.
  int open() {
    fd = ::open(range.capture, O_RDONLY | O_CLOEXEC);
    const int err = fd == -1 ? errno : source.open(range.capture);
    if (err == 0)
      has_packets = packets.start(1);
    return err;
  }

  // Makes one; later ones lie behind it. Returns 0, an errno, or CHANGED.
  int make(const clip &c) {
    read_tables(c.begin);
    const std::vector<uint64_t> tables = offsets.offsets();
    const int length = snprintf(path, sizeof path, "%s/%s", target.directory, name_of(c).text);
    if (static_cast<size_t>(length) >= sizeof path)
      return ENAMETOOLONG;
    output_place place;
    if (const int err = find_place(path, place))
      return err;
    if (is_same_file(id_of(place), id_of(fd)))
      return EBUSY; // a clip that is looked at where it lies
    output_file file;
    if (const int err = file.open(place))
      return err;
    for (const uint64_t at : tables)
      copy(file, at, range.packet_size);
    table_bytes = tables.size() * range.packet_size;
    copy(file, c.begin, c.size);
    return finish(file);
  }

  char path[PATH_MAX] = {}; // of the last one
  uint64_t table_bytes = 0; // before its piece

private:
  // Nothing is kept of a capture that is not what was judged.
  int finish(output_file &file) {
    struct stat now;
    if (fstat(fd, &now) != 0 || !is_as_before(target.capture, now))
      return CHANGED;
    if (read_error != 0)
      return read_error;
    return file.complete();
  }

  void copy(output_file &to, uint64_t from, uint64_t size) {
    char part[PART];
    while (size != 0 && to.error() == 0 && read_error == 0) {
      const ssize_t n =
          pread(fd, part, std::min<uint64_t>(size, sizeof part), static_cast<off_t>(from));
      if (n > 0) {
        to.write({part, static_cast<size_t>(n)});
        from += static_cast<uint64_t>(n);
        size -= static_cast<uint64_t>(n);
      } else if (n == 0 || errno != EINTR) {
        read_error = n == 0 ? EIO : errno;
      }
    }
  }

  // Goes on to the record at `stop`.
  void read_tables(uint64_t stop) {
    while (has_packets) {
      if (step.what == framing_step::END)
        step = packets.next(SIZE_MAX);
      if (step.what == framing_step::END || record_of(step.offset) >= stop)
        return;
      const size_t taken = step.what == framing_step::PACKETS ? take(stop) : 0;
      if (taken != 0)
        packets.took(taken);
      step = {};
    }
  }

  // Where the record of a packet begins: one of 192 bytes has its time of arrival in front.
  uint64_t record_of(uint64_t sync_byte) const {
    return sync_byte - (range.packet_size == 192 ? 4 : 0);
  }

  // Takes the packets at hand up to `stop`, or up to one without sync byte.
  size_t take(uint64_t stop) {
    size_t taken = 0;
    for (; taken < step.count; ++taken) {
      const size_t at = taken * range.packet_size;
      const ts_pkt pkt = ts_read(step.bytes + at);
      if (!ts_in_sync(pkt) || record_of(step.offset + at) >= stop)
        break;
      offsets.packet(pkt, record_of(step.offset + at));
    }
    return std::max<size_t>(taken, 1);
  }

  const clip_target &target;
  const clip_range &range;
  int fd = -1, read_error = 0;
  byte_source source;
  framing packets;
  framing_step step;
  bool has_packets = false;
  table_packets offsets;
};

void put_clip(output_file &json, const clip &c, const clip_maker &made) {
  json_text r(json);
  r.field("record", "clip");
  r.field("file", made.path);
  r.field("kind", audit_kind_name(c.kind));
  r.field_if(c.pid >= 0, "pid", c.pid);
  r.field("findings", c.findings);
  r.seconds("from", std::max(0.0, c.from));
  r.seconds("to", c.to);
  r.field("offset", c.begin);
  r.field("bytes", c.size);
  r.field("table_bytes", made.table_bytes);
  r.field("cut_off", c.is_cut_off);
}

bool make_all(const clip_target &target, const std::vector<clip> &clips, const clip_range &range,
              output_file &json) {
  clip_maker maker(target, range);
  if (const int err = maker.open())
    return refuse("cut clips of", range.capture, strerror(err));
  size_t made = 0, cut_off = 0;
  for (const clip &c : clips) {
    const int err = maker.make(c);
    if (err == CHANGED)
      return refuse("cut clips of", range.capture, "it has changed since it was judged");
    if (err != 0)
      return refuse("write", maker.path,
                    err == EBUSY ? "it is the file to analyze" : strerror(err));
    ++made;
    cut_off += c.is_cut_off;
    if (json.is_open())
      put_clip(json, c, maker);
  }
  fprintf(stderr, "%s in [%s]", counted(made, "clip").c_str(), target.directory);
  if (cut_off != 0)
    fprintf(stderr, ", %zu of them cut off after a minute", cut_off);
  fputs("\n", stderr);
  return true;
}

} // namespace

bool start_clips(clip_target &target, const char *capture) {
  if (!target.directory)
    return true;
  if (stat(capture, &target.capture) == 0 && !S_ISREG(target.capture.st_mode))
    return refuse("cut clips of", capture,
                  "it is no regular file, and would have to be read twice");
  struct stat st;
  if (mkdir(target.directory, 0777) == 0)
    return true;
  const int err = errno;
  if (err == EEXIST && stat(target.directory, &st) == 0 && S_ISDIR(st.st_mode))
    return true;
  return refuse("put clips into", target.directory, strerror(err == EEXIST ? ENOTDIR : err));
}

bool make_clips(const clip_target &target, const clip_plan &plan, const clip_range &range,
                output_file &json) {
  try {
    const std::vector<clip> clips = plan.clips(range.first, range.last);
    if (clips.empty()) {
      fputs("No clips: there are no findings\n", stderr);
      return true;
    }
    if (plan.is_without_clock()) {
      fputs("No clips: the stream has no clock that tells where two seconds begin\n", stderr);
      return true;
    }
    const bool is_made = make_all(target, clips, range, json);
    if (plan.left_out() != 0)
      fprintf(stderr, "No clip of %s more: there are at most %zu\n",
              counted(plan.left_out(), "place").c_str(), size_t{clip_plan::MOST_CLIPS});
    return is_made;
  } catch (const std::bad_alloc &) {
    return refuse("cut clips of", range.capture, strerror(ENOMEM));
  }
}
