// RingLog: sites that cost nothing while off, arguments that come back from
// the file as printf would have printed them, one ring per level that wraps
// keeping whole records, and a reader that a damaged file cannot crash.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>

#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Exception.h"
#include "fabvxlan/runtime/RingLog.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

// Runs a site and gives its line, which the reader shows.
#define AT_LINE(...) \
  ([&] {             \
    __VA_ARGS__;     \
    return __LINE__; \
  }())

class TempDir {
 public:
  TempDir() {
    std::string pattern = "/tmp/ringlog-test.XXXXXX";
    EXPECT_NE(::mkdtemp(pattern.data()), nullptr);
    path_ = pattern;
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  std::string const& path() const { return path_; }
  std::string file(std::string const& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string lineFor(double time, int level, int line, std::string const& text) {
  return Rxn::format("%.6f L%d RingLogTest.cpp:%d %s", time, level, line, text.c_str());
}

// The number after `word ` in a line, or -1.
long numberAfter(std::string const& line, std::string const& word) {
  std::size_t const at = line.find(word + " ");
  return at == std::string::npos ? -1 : std::stol(line.substr(at + word.size() + 1));
}

std::string contentOf(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(std::string const& path, std::string const& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

TEST(RingLog, ASiteEvaluatesNothingWhileOffAndRegistersInEachFileItReaches) {
  TempDir dir;
  Rxn::Activity activity(Rxn::Activity::TimeMode::simulated);
  int evaluated = 0;
  auto const site = [&](int round) { return AT_LINE(RXN_RING(2, "round %d evaluated %d", round, ++evaluated)); };

  site(1);
  EXPECT_EQ(evaluated, 0);
  RingLog::RingFile* const first = RingLog::initialize_handle("first.rl", "4K", dir.path(), false);
  RingLog::RingFile* const second = RingLog::initialize_handle("second.rl", "4K", dir.path(), false);
  RingLog::defaultRingLogHandle = first;
  int const line = site(2);
  RingLog::defaultRingLogHandle = second;
  site(3);
  RingLog::defaultRingLogHandle = first;
  activity.advanceTime(1.5);
  site(4);
  RingLog::defaultRingLogHandle = nullptr;
  site(5);

  EXPECT_EQ(evaluated, 3);
  double const start = Rxn::Activity::kSimulatedStart;
  EXPECT_THAT(RingLog::formatRingFile(first->path()),
              ElementsAre(lineFor(start, 2, line, "round 2 evaluated 1"),
                          lineFor(start + 1.5, 2, line, "round 4 evaluated 3")));
  EXPECT_THAT(RingLog::formatRingFile(second->path()), ElementsAre(lineFor(start, 2, line, "round 3 evaluated 2")));
}

enum class Color : std::int16_t { red = -2 };
enum Plain : std::uint8_t { plainSeven = 7 };
struct VtepName {
  int id;
  std::string stringValue() const { return "vtep-" + std::to_string(id); }
};

TEST(RingLog, EveryArgumentTypeComesBackAsPrintfWouldHavePrintedIt) {
  TempDir dir;
  Rxn::Activity activity(Rxn::Activity::TimeMode::simulated);
  activity.advanceTime(0.25);
  RingLog::RingFile* const ring = RingLog::initialize_handle("types.rl", "64K", dir.path(), false);
  char const* const nullText = nullptr;
  std::string const longText(300, 'x');

  int const integers =
      AT_LINE(RXN_RING_TO(ring, 4, "%d %u %hd %hu %d %u %lld %llu %#x %05d [%-3d] %hhu %c", std::int8_t{-8},
                          std::uint8_t{250}, std::int16_t{-300}, std::uint16_t{65000}, -1, -1,
                          std::numeric_limits<std::int64_t>::min(), ~std::uint64_t{0}, 255U, 42, 7, 300, 'A'));
  int const others =
      AT_LINE(RXN_RING_TO(ring, 4, "%s %d %s %d %.2f %g %s %s [%-4s] %s %s %s %s 100%%", true, true, Color::red,
                          plainSeven, 1.5F, 0.1, "literal", nullText, std::string("ab"), longText, VtepName{3},
                          RingLog::Ip4{0x0A000001}, RingLog::Mac{{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}}));
  int const none = AT_LINE(RXN_RING_TO(ring, 4, "no arguments"));
  int const mismatched = AT_LINE(RXN_RING_TO(ring, 4, "int %s real %d missing %u", 5, 2.5));

  double const time = Rxn::Activity::kSimulatedStart + 0.25;
  EXPECT_THAT(
      RingLog::formatRingFile(ring->path()),
      ElementsAre(lineFor(time, 4, integers,
                          "-8 250 -300 65000 -1 4294967295 -9223372036854775808 18446744073709551615 0xff 00042 [7  ] "
                          "44 A"),
                  lineFor(time, 4, others,
                          "true 1 -2 7 1.50 0.1 literal (null) [ab  ] " + std::string(255, 'x') +
                              " vtep-3 10.0.0.1 0011.2233.4455 100%"),
                  lineFor(time, 4, none, "no arguments"), lineFor(time, 4, mismatched, "int 5 real 2.5 missing %u")));
}

TEST(RingLog, EachLevelHasItsOwnRingSoAFloodKeepsTheRareMessages) {
  TempDir dir;
  RingLog::RingFile* const ring = RingLog::initialize_handle("levels.rl", "4K", dir.path(), false);
  RXN_RING_TO(ring, 1, "rare %d", 1);
  for (int i = 0; i < 2000; ++i) {
    RXN_RING_TO(ring, 8, "chatty %d", i);
  }
  RXN_RING_TO(ring, 1, "rare %d", 2);

  std::vector<std::string> const rare = RingLog::formatRingFile(ring->path(), 1);
  std::vector<std::string> const chatty = RingLog::formatRingFile(ring->path(), 8);
  std::vector<std::string> const all = RingLog::formatRingFile(ring->path());
  ASSERT_EQ(rare.size(), 2U);
  EXPECT_EQ(numberAfter(rare[0], "rare"), 1);
  EXPECT_EQ(numberAfter(rare[1], "rare"), 2);
  ASSERT_GT(chatty.size(), 50U);
  ASSERT_LT(chatty.size(), 2000U);
  EXPECT_EQ(numberAfter(chatty.back(), "chatty"), 1999);
  // Merged in the order of writing: the first rare one is older than every chatty one kept.
  ASSERT_EQ(all.size(), chatty.size() + 2);
  EXPECT_EQ(all.front(), rare[0]);
  EXPECT_EQ(all.back(), rare[1]);
  EXPECT_TRUE(std::equal(chatty.begin(), chatty.end(), all.begin() + 1));
}

TEST(RingLog, AWrappingRingKeepsTheNewestWholeRecordsAndEachLevelItsOwnSize) {
  TempDir dir;
  RingLog::RingFile* const ring = RingLog::initialize_handle("wrap.rl", "4K,16K", dir.path(), false);
  EXPECT_EQ(ring->ringBytes(0), 4096U);
  EXPECT_EQ(ring->ringBytes(1), 16384U);
  EXPECT_EQ(ring->ringBytes(9), 16384U);
  // Records of changing lengths wrap many times and straddle the end of the ring.
  auto const textOf = [](int i) {
    return std::string(static_cast<std::size_t>(i % 97), static_cast<char>('a' + i % 26));
  };
  constexpr int kMessages = 600;
  for (int i = 0; i < kMessages; ++i) {
    RXN_RING_TO(ring, 0, "message %d text %s", i, textOf(i));
    RXN_RING_TO(ring, 1, "message %d text %s", i, textOf(i));
  }

  std::vector<std::string> const small = RingLog::formatRingFile(ring->path(), 0);
  std::vector<std::string> const large = RingLog::formatRingFile(ring->path(), 1);
  for (auto const* lines : {&small, &large}) {
    for (std::size_t k = 0; k < lines->size(); ++k) {
      int const expected = kMessages - static_cast<int>(lines->size() - k);
      EXPECT_EQ(numberAfter((*lines)[k], "message"), expected);
      EXPECT_TRUE((*lines)[k].ends_with(" text " + textOf(expected))) << (*lines)[k];
    }
  }
  // No more evicted than room needs: a 4K ring of records under 130 bytes keeps 30 at least.
  EXPECT_GE(small.size(), 30U);
  EXPECT_GT(large.size(), 3 * small.size());
}

TEST(RingLog, ABadSizeSpecIsRefusedBeforeAnyFileIsMade) {
  TempDir dir;
  for (char const* spec : {"", "0", "4095", "12Q", "1KB", "16K,,16K", "512M", "-4K", "99999999999999999999K",
                           "4K,4K,4K,4K,4K,4K,4K,4K,4K,4K,4K"}) {
    try {
      RingLog::initialize_handle("bad.rl", spec, dir.path(), false);
      ADD_FAILURE() << "accepted \"" << spec << "\"";
    } catch (Rxn::RangeException const& e) {
      EXPECT_THAT(e.what(), HasSubstr("sizeSpec \"" + std::string(spec) + "\""));
    }
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("bad.rl")));
}

// A ring file with records in several levels, some of them wrapped.
std::string sampleRing(TempDir const& dir) {
  RingLog::RingFile* const ring = RingLog::initialize_handle("sample.rl", "4K", dir.path(), false);
  for (int i = 0; i < 200; ++i) {
    RXN_RING_TO(ring, 3, "vtep %s vni %u", RingLog::Ip4{0x0A000000U + static_cast<std::uint32_t>(i)}, i);
    RXN_RING_TO(ring, 6, "mac %s name %s", RingLog::Mac{{0, 1, 2, 3, 4, static_cast<std::uint8_t>(i)}},
                std::string(static_cast<std::size_t>(i % 40), 'n'));
  }
  return ring->path();
}

TEST(RingLog, ADamagedFileIsReportedNeverFollowed) {
  TempDir dir;
  std::string const good = contentOf(sampleRing(dir));
  std::string const damaged = dir.file("damaged.rl");
  auto const errorFor = [&](std::string const& content) -> std::string {
    writeFile(damaged, content);
    try {
      RingLog::formatRingFile(damaged);
    } catch (Rxn::RangeException const& e) {
      return e.what();
    }
    return "no error";
  };
  EXPECT_EQ(errorFor(""), damaged + ": not a ring file (no RingLog magic at its start)");
  EXPECT_EQ(errorFor("X" + good.substr(1)), damaged + ": not a ring file (no RingLog magic at its start)");
  for (std::size_t size : {std::size_t{100}, good.size() / 3, good.size() / 2, good.size() - 1}) {
    EXPECT_THAT(errorFor(good.substr(0, size)), HasSubstr(damaged + ": truncated: ")) << size;
  }
  EXPECT_THROW(RingLog::formatRingFile(dir.file("missing.rl")), Rxn::ErrnoException);

  // Damage where the file says something, every other time in its first such
  // bytes (header and descriptors, before the rings): any error is a
  // RangeException, and an offset or length followed past the bytes would stop
  // the sanitized build.
  std::vector<std::size_t> meaningful;
  for (std::size_t at = 0; at < good.size(); ++at) {
    if (good[at] != 0) {
      meaningful.push_back(at);
    }
  }
  std::mt19937 random(7);
  int rejected = 0;
  for (int round = 0; round < 300; ++round) {
    std::string content = good;
    std::size_t const targets = round % 2 == 0 ? std::min<std::size_t>(300, meaningful.size()) : meaningful.size();
    for (int hits = 1 + round % 3; hits > 0; --hits) {
      content[meaningful[random() % targets]] = static_cast<char>(random());
    }
    rejected += errorFor(content) != "no error" ? 1 : 0;
  }
  EXPECT_GT(rejected, 30);
}

TEST(RingLog, ConcurrentWritersOnASharedHandleLeaveOnlyWholeRecords) {
  TempDir dir;
  RingLog::RingFile* const ring = RingLog::initialize_handle("threads.rl", "1M", dir.path(), true);
  constexpr int kThreads = 4;
  constexpr int kEach = 2000;
  std::vector<std::thread> writers;
  for (int t = 0; t < kThreads; ++t) {
    writers.emplace_back([ring, t] {
      for (int i = 0; i < kEach; ++i) {
        RXN_RING_TO(ring, 5, "thread %d message %d check %s", t, i, std::to_string(t * 100000 + i));
      }
    });
  }
  for (std::thread& writer : writers) {
    writer.join();
  }

  std::vector<std::string> const lines = RingLog::formatRingFile(ring->path());
  ASSERT_EQ(lines.size(), std::size_t{kThreads * kEach});
  std::vector<long> nextOf(kThreads, 0);
  for (std::string const& line : lines) {
    long const t = numberAfter(line, "thread");
    ASSERT_TRUE(t >= 0 && t < kThreads) << line;
    EXPECT_EQ(numberAfter(line, "message"), nextOf[t]) << line;
    EXPECT_EQ(numberAfter(line, "check"), t * 100000 + nextOf[t]) << line;
    ++nextOf[t];
  }
}

// The exit status of a command, its stdout and stderr.
struct Finished {
  int status;
  std::string out;
  std::string err;
};

Finished run(TempDir const& dir, std::string const& command) {
  int const status = std::system((command + " >" + dir.file("out") + " 2>" + dir.file("err")).c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(dir.file("out")), contentOf(dir.file("err"))};
}

std::string joined(std::vector<std::string> const& lines) {
  std::string text;
  for (std::string const& line : lines) {
    text += line + "\n";
  }
  return text;
}

TEST(RingLog, TheDumpToolPrintsTheLinesOrOneLineTellingWhatIsWrong) {
  std::filesystem::path const tool =
      std::filesystem::canonical("/proc/self/exe").parent_path().parent_path() / "tools" / "fabvxlan-ringdump";
  if (!std::filesystem::exists(tool)) {
    GTEST_SKIP() << "fabvxlan-ringdump is not built at " << tool;
  }
  TempDir dir;
  std::string const ring = sampleRing(dir);
  std::string const garbage = dir.file("garbage.rl");
  writeFile(garbage, "not a ring");

  Finished const all = run(dir, tool.string() + " " + ring);
  EXPECT_EQ(all.status, 0);
  EXPECT_EQ(all.out, joined(RingLog::formatRingFile(ring)));
  Finished const level3 = run(dir, tool.string() + " " + ring + " --level 3");
  EXPECT_EQ(level3.status, 0);
  EXPECT_EQ(level3.out, joined(RingLog::formatRingFile(ring, 3)));
  EXPECT_THAT(level3.out, Not(HasSubstr(" L6 ")));
  Finished const bad = run(dir, tool.string() + " " + garbage);
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.out, "");
  EXPECT_EQ(bad.err, "fabvxlan-ringdump: " + garbage + ": not a ring file (no RingLog magic at its start)\n");
  EXPECT_EQ(run(dir, tool.string()).status, 2);
  EXPECT_EQ(run(dir, tool.string() + " " + ring + " --level 12").status, 2);
}

}  // namespace
