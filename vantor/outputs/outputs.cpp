#include "outputs/outputs.h"

#include <cstdio>
#include <cstring>

#include "outputs/json_writer.h"
#include "outputs/report_html.h"
#include "tsa/config.h"
#include "tsa/exit_status.h"

namespace {

int create(output_file &out, const char *path) {
  const int err = path ? out.open(path, g_cfg.fpath) : 0;
  if (err != 0)
    fprintf(stderr, "Cannot create [%s]: %s\n", path, strerror(err));
  return err == 0 ? 0 : -1;
}

// True when the whole file was written.
bool complete(output_file &out, const char *path) {
  const int err = out.close();
  if (err != 0)
    fprintf(stderr, "Cannot write [%s]: %s\n", path, strerror(err));
  return err == 0;
}

} // namespace

int outputs::open() {
  exit = g_cfg.exit;
  if (create(json, g_cfg.json_path) != 0 || create(page, g_cfg.report_path) != 0)
    return -1;
  data = report_data(g_cfg.tsa.is_enabled);
  if (json.is_open())
    json_header(json);
  return 0;
}

void outputs::listen(tsan_t ctx) {
  if (!collects() && !exit.is_on() && !g_cfg.progress)
    return;
  const tsan_readout readout = {.size = sizeof readout,
                                .opaque = this,
                                .on_alert = on_alert,
                                .on_sample = collects() ? on_sample : nullptr,
                                .measure_all = collects()};
  tsan_set_readout(ctx, &readout);
}

void outputs::on_alert(void *self, const tsan_alert *alert) {
  auto &to = *static_cast<outputs *>(self);
  to.exit.alert(*alert);
  to.line.alert(*alert);
  if (to.json.is_open())
    json_alert(to.json, *alert);
  if (to.collects())
    to.data.alert(*alert);
}

void outputs::on_sample(void *self, const tsan_sample *sample) {
  static_cast<outputs *>(self)->data.sample(*sample);
}

int outputs::finish(run_info run) {
  const bool unreadable = is_unreadable(run.end);
  run.status = exit.status(run.status, unreadable);
  if (json.is_open() && unreadable)
    json_unreadable(json, run);
  if (json.is_open())
    json_report(json, run, data);
  if (page.is_open())
    page.write(report_page(run, data));
  const bool json_done = complete(json, g_cfg.json_path);
  const bool page_done = complete(page, g_cfg.report_path);
  return json_done && page_done ? run.status : EXIT_STATUS_FAILED;
}
