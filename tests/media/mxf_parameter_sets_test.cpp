// H.264 in MXF: libavformat's MXF reader makes up AVC-Intra parameter sets (High 4:2:2, 10-bit)
// for a 1920x1080 interlaced track, although the stream carries its own. The commands must
// describe and pass on the stream's own, as ffprobe reads them from the elementary stream.
#include "media_support.h"
#include "support/test_support.h"
#include "support/tool_runs.h"

namespace {

using qtest::shellQuote;

class MxfParameterSets : public mtest::FfmpegTest {};

std::string ffprobeStream(const std::string& path, const std::string& entry) {
  auto r = qtest::runCommand("ffprobe -v error -select_streams v:0 -show_entries stream=" + entry +
                             " -of default=nw=1:nk=1 " + shellQuote(path));
  return r.out.substr(0, r.out.find('\n'));
}

TEST_F(MxfParameterSets, TheStreamsOwnAreDescribedAndPassedOn) {
  const std::string es = qtest::encodedStream(
      "mxf-1080i.264", "-f lavfi -i testsrc2=size=1920x1080:rate=25 -frames:v 4 -c:v libx264 -preset ultrafast "
                       "-flags +ildct+ilme -f h264");
  qtest::TempDir dir;
  const std::string mxf = dir.file("in.mxf");
  ASSERT_EQ(qtest::runCommand("ffmpeg -v error -i " + shellQuote(es) + " -c copy " + shellQuote(mxf)).exitCode, 0);
  const auto params = mtest::runJson("params " + shellQuote(mxf));
  ASSERT_FALSE(params.is_null());
  EXPECT_EQ(params.at("summary").at("profile"), ffprobeStream(es, "profile"));
  EXPECT_EQ(params.at("summary").at("chromaFormat"), "4:2:0");
  EXPECT_EQ(params.at("summary").at("bitDepthLuma"), 8);
  const auto inspect = mtest::runJson("inspect " + shellQuote(mxf));
  ASSERT_FALSE(inspect.is_null());
  EXPECT_EQ(inspect.at("parameterSets").at("sps"), 1);
  // An MP4 made from it carries the stream's SPS in its avcC, for reframe and stamp alike: the
  // record read back equals the one made from the elementary stream.
  auto record = [&](const std::string& path, const std::string& name) {
    const std::string box = dir.file(name);
    EXPECT_EQ(qtest::runTool("avcc " + shellQuote(path) + " -o " + shellQuote(box)).exitCode, 0);
    return mtest::runJson("avcc --read " + shellQuote(box)).at("record");
  };
  const auto esRecord = record(es, "es.avcc");
  for (const char* command : {"reframe", "stamp"}) {
    SCOPED_TRACE(command);
    const std::string mp4 = dir.file(std::string(command) + ".mp4");
    qtest::runToolOk(std::string(command) + " " + shellQuote(mxf) + " " + shellQuote(mp4) +
                     (std::string(command) == "stamp" ? " --tc 01:00:00:00" : ""));
    EXPECT_EQ(ffprobeStream(mp4, "profile"), ffprobeStream(es, "profile"));
    EXPECT_EQ(ffprobeStream(mp4, "pix_fmt"), ffprobeStream(es, "pix_fmt"));
    EXPECT_EQ(mtest::videoFrameMd5(mp4), mtest::videoFrameMd5(mxf));
    if (std::string(command) == "reframe") {
      EXPECT_EQ(record(mp4, "mp4.avcc"), esRecord);  // stamp rewrites the SPS for pic_struct
    }
  }
}

}  // namespace
