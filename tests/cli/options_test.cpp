// Options, the settings file, and what the program says about both. The capture never exists: a run
// ends when it cannot be opened, with all settings printed.
#include <fstream>

#include "cli/korva.h"

namespace {

// The lines of a settings dump that the dump of the defaults has not, values behind one blank; then
// the labels that only that one has.
words changes(const std::string &dump) {
  const std::string defaults = expected("settings.txt");
  words out;
  for (const std::string &line : lines_with(dump, "\t"))
    if (const size_t value = line.find(": ") + 2; defaults.find(line + "\n") == line.npos)
      out.push_back(line.substr(1, value - 1) + line.substr(line.find_first_not_of(' ', value)));
  for (const std::string &line : lines_with(defaults, "\t"))
    if (const std::string label = line.substr(1, line.find(": ")); dump.find(label) == dump.npos)
      out.push_back(label);
  return out;
}

// Runs in a directory with the settings file that the case gives ("settings: ...") as a.cfg, and
// two others.
run_result run_case(test_case &c, const words &env) {
  const temp_dir dir;
  if (!c.lines.empty() && c.lines[0].starts_with("settings: ")) {
    std::ofstream(dir.file("a.cfg")) << c.lines[0].substr(10) << '\n';
    c.lines.erase(c.lines.begin());
  }
  std::ofstream(dir.file("b.cfg"))
      << "vnt: { stream_analyzer: { enabled = true; source_tag = \"b\"; }; };\n";
  std::ofstream(dir.file("off.cfg"))
      << "vnt: { stream_analyzer: { enabled = false; max_skipped_pkts = 10; }; };\n";
  return korva(c.args, {.env = env, .cwd = dir.path});
}

} // namespace

TEST(options, change_settings) {
  const std::string end = korva({"none.ts"}).err;
  for (test_case &c : table("changes.txt")) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    c.args.insert(c.args.end(), {"none.ts", "ignored.ts"});
    const run_result r = run_case(c, {"SHOW_VNT_CFG="});
    EXPECT_EQ(changes(r.err), c.lines);
    EXPECT_TRUE(r.err.starts_with("analyzer: \n\tsource: ") && r.err.ends_with("\n" + end))
        << r.err;
    EXPECT_EQ(r.status, 0);
  }
  EXPECT_EQ(korva({"none.ts"}, {.env = {"SHOW_VNT_CFG=1"}}).err, expected("settings.txt") + end);
}

TEST(options, runs_that_read_nothing) {
  for (test_case &c : table("options.txt")) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    const run_result r = run_case(c, {});
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(lines_of(r.err), c.lines);
  }
  const run_result no_path = korva({""});
  EXPECT_EQ(no_path.status, 2);
  EXPECT_EQ(no_path.err, "Expecting argument after the options.\n" + expected("usage.txt"));
}
