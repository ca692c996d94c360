// quorvane tc from the outside: conversions both ways, JSON and one-line errors.
#include <gtest/gtest.h>

#include <string>

#include "support/test_support.h"

namespace {

TEST(TcCli, ConversionsJsonAndErrors) {
  const struct {
    const char* args;
    int exitCode;
    const char *out, *err;  // exact stdout; start of stderr ("" = must be empty)
  } cases[] = {
      // Every type both ways is Tc2Frame.RandomCountsRoundTripInEveryForm and the spellings are
      // TimecodeTypeNames (tests/video); here the wiring of each option, lists and wrapping.
      {"--type 29.97df 107892", 0, "01:00:00;00\n", ""}, {"--type pal 01:00:00:00", 0, "90000\n", ""},
      {"--type 29.97df 17982 1800 00:01:00\\;02", 0, "00:10:00;00\n00:01:00;02\n1800\n", ""},
      {"108000", 0, "01:00:00:00\n", ""},  // 30 by default
      {"--type frames 12345", 0, "12345\n", ""}, {"--type 25 2160025", 0, "00:00:01:00\n", ""},
      {"--type 25 --no-wrap 2160025", 0, "24:00:01:00\n", ""},
      {"--type 25 --no-wrap 24:00:01:00", 0, "2160025\n", ""},
      {"--type 25 5:12", 1, "",
       "quorvane tc: '5:12' is not a whole timecode: give all four fields HH:MM:SS:FF (three fields could be HH:MM:SS "
       "or MM:SS:FF)\n"},
      {"--format 0x10100 --type 29.97df 1800", 0, "0:01:00:02\n", ""}, {"--format 0x404 107892", 0, "1 0 0 0\n", ""},
      {"--type 29.97df 00:01:00:00", 1, "", "quorvane tc: '00:01:00:00' is not a valid 29.97df timecode\n"},
      {"--type 25 banana", 1, "", "quorvane tc: 'banana' is not a timecode (HH:MM:SS:FF)\n"},
      {"--type 25 4294967296", 1, "", "quorvane tc: '4294967296' is not a frame count that fits 32 bits\n"},
      {"--type 29.98 1", 2, "", "quorvane tc: unknown type '29.98'"},
      {"--format 0x800 1", 2, "", "quorvane tc: format word 0x800 has an unknown type or option bit (see --help)\n"},
      {"--format 0x80440 4294967295", 1, "", "quorvane tc: cannot render 4294967295 as 60"},  // hours > 255
      {"--format zz 1", 2, "", "quorvane tc: bad format word 'zz'\n"}, {"--bogus 1", 2, "", "quorvane tc: "},
      {"", 2, "", "quorvane tc: give a frame count or a timecode (see --help)\n"},
      // --json: both forms, the digit bytes of a 0x400 word, and a type's spelling printed by its
      // canonical name (the vocabulary itself is tested with the library).
      {"--type 59.94df --json 3600 00:01:00:04", 0,
       "{\"type\":\"59.94df\",\"format\":205088,\"results\":[{\"input\":\"3600\",\"frames\":3600,\"timecode\":\"00:01:00;04\"},"
       "{\"input\":\"00:01:00:04\",\"frames\":3600,\"timecode\":\"00:01:00;04\"}]}\n", ""},
      {"--format 0x404 --json 1800", 0,
       "{\"type\":\"29.97df\",\"format\":1028,\"results\":[{\"input\":\"1800\",\"frames\":1800,\"timecode\":\"0 1 0 2\","
       "\"digits\":[0,1,0,2]}]}\n", ""},
      {"--json --type pal 0", 0,
       "{\"type\":\"25\",\"format\":205064,\"results\":[{\"input\":\"0\",\"frames\":0,\"timecode\":\"00:00:00:00\"}]}\n", ""},
  };
  for (const auto& c : cases) {
    const auto r = qtest::runTool(std::string("tc ") + c.args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.args << "\n" << r.err;
    EXPECT_EQ(r.out, c.out) << c.args;
    if (*c.err) EXPECT_EQ(r.err.rfind(c.err, 0), 0u) << c.args << " stderr: " << r.err;
    else EXPECT_EQ(r.err, "") << c.args;
    if (c.exitCode) {
      EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << "one line: " << r.err;
    }
  }
}

}  // namespace
