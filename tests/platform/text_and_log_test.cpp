#include <gtest/gtest.h>

#include <cstring>

#include <climits>
#include <random>
#include <string>

#include "platform/zrlog.h"
#include "platform/zrmemory.h"
#include "platform/zrtext.h"
#include "support/test_support.h"

namespace {

TEST(Itoa, MatchesPrintfInEveryBase) {
  struct Case { int value; int base; const char* text; };
  const Case cases[] = {
      {0, 10, "0"}, {65520, 10, "65520"}, {-1, 10, "-1"}, {INT_MIN, 10, "-2147483648"}, {INT_MAX, 10, "2147483647"},
      {-1, 16, "ffffffff"}, {255, 2, "11111111"}, {35, 36, "z"},
  };
  for (const auto& c : cases) {
    char buf[34];
    EXPECT_STREQ(itoa(c.value, buf, c.base), c.text) << c.value << " base " << c.base;
  }
}

TEST(Base64, KnownVectors) {  // RFC 4648 section 10
  const char* vectors[][2] = {{"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},        {"foo", "Zm9v"},
                              {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
  for (auto& v : vectors) {
    char out[32];
    size_t n = base64_encode(v[0], std::strlen(v[0]), out, sizeof out);
    EXPECT_EQ(std::string(out, n), v[1]);
  }
}

TEST(Base64, RandomRoundTripAndRefusals) {
  std::mt19937 rng(7);
  for (int iter = 0; iter < 2000; ++iter) {
    std::string data(rng() % 300, '\0');
    for (auto& c : data) c = static_cast<char>(rng());
    std::string text(base64_encoded_length(data.size()) + 1, '\0');
    size_t n = base64_encode(data.data(), data.size(), text.data(), text.size());
    ASSERT_EQ(n, base64_encoded_length(data.size()));
    std::string back(data.size(), '\0');
    size_t got = 0;
    ASSERT_EQ(base64_decode(text.data(), n, back.data(), back.size(), &got), 0);
    ASSERT_EQ(got, data.size());
    ASSERT_EQ(back, data);
    if (!data.empty()) {  // one byte too small is refused, never overrun
      ASSERT_EQ(base64_encode(data.data(), data.size(), text.data(), n), 0u);
      ASSERT_EQ(base64_decode(text.data(), n, back.data(), back.size() - 1, &got), -1);
    }
  }
  size_t got = 0;
  char out[8];
  EXPECT_EQ(base64_decode("Zm9v!", 5, out, sizeof out, &got), -1);
  EXPECT_EQ(base64_decode("Z", 1, out, sizeof out, &got), -1);
}

TEST(Log, SinkReceivesExactFormattedTexts) {
  qtest::LogCapture capture;
  ErrOut("Failed to parse JSON: %d\n", -2);
  ErrFmtOut(0x80000000u, 0, 0, "WARNING(XMLmCmd): %s\n\r", "Exception: MediaCmdToXML() ");
  _DbgOut("trace");
  std::string longText(3000, 'x');
  ErrOut("%s", longText.c_str());
  ASSERT_EQ(capture.lines().size(), 4u);
  EXPECT_EQ(capture.lines()[0].kind, ZR_LOG_ERROR);
  EXPECT_EQ(capture.lines()[0].text, "Failed to parse JSON: -2\n");
  EXPECT_EQ(capture.lines()[1].kind, ZR_LOG_FORMATTED);
  EXPECT_EQ(capture.lines()[1].severity, 0x80000000u);
  EXPECT_EQ(capture.lines()[1].text, "WARNING(XMLmCmd): Exception: MediaCmdToXML() \n\r");
  EXPECT_EQ(capture.lines()[2].kind, ZR_LOG_DEBUG);
  EXPECT_EQ(capture.lines()[3].text, longText);  // never truncated
}

TEST(Memory, AllocIsZeroedAndZeroSizeIsNull) {
  EXPECT_EQ(ZRAlloc(0), nullptr);
  auto* p = static_cast<unsigned char*>(ZRAlloc(64));
  ASSERT_NE(p, nullptr);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(p[i], 0);
  ZRFree(p);
  ZRFree(nullptr);
}

}  // namespace
