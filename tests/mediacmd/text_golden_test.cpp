// Exact XML and JSON texts of a handful of commands, and the debug dump's lines.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "mediacmd/mediacmd.h"
#include "support/test_support.h"
#include "text_forms.h"

namespace {

using mctest::jsonOf;
using mctest::xmlOf;

const std::string kHead =
    R"(<?xml version="1.0" encoding="iso-8859-1" ?><MediaCmd><!-- Brontal MEDIACMD xml structure version 1,0 -->)";

constexpr uint32_t kUnset = 0xFFFFFFFF;

// A record as initMediaCmd makes it for `cmd`, with these channel, flags and CmdAlt, and what
// `more` sets besides.
struct Golden {
  const char* name;
  unsigned cmd;
  uint32_t channel, flags, cmdAlt;
  std::function<void(MEDIACMD&)> more;
  unsigned tcType;
  std::string xml;  // after the declaration, root and comment
  std::string json;
};

TEST(MediaCmdGolden, ExactTexts) {
  const Golden goldens[] = {
      // No "usespeed": the value says normal speed, the percentage comes from the unset speed
      // (0x7FFFFFFF * 100 wraps to -100 in 32 bits, so 0 percent).
      {"play without speed", ctPlay, 1, 0, kUnset, nullptr, 4,
       R"(<CmdID Value="-98237952" /><StructSize Value="4188" /><Channel Value="1" /><Cmd Value="2">Play</Cmd>)"
       R"(<Speed Value="65520">0</Speed><Position Value="-1" TcType="drop-frame">16:01:25;11</Position></MediaCmd>)",
       R"({"MediaCmd" : {"CmdID":4196729344,"StructSize":4188,"Channel":1,"Cmd": {"Value":2,"String":"Play",},)"
       R"("Speed": {"Value":65520,"String":"0",},"Position": {"Value":-1,"TcType":"drop-frame","TcString":"16:01:25;11",},}})"},
      {"shuttle at half speed, frames", ctPlay, 0, cfUseSpeed | cfIsShuttle | cfDeferred | cfOverrideDeferred | cfUsePosition,
       kUnset, [](MEDIACMD& c) {
         c.Speed = -32760;
         c.Position = 1234;
       }, 255,
       R"(<CmdID Value="-98237952" /><StructSize Value="4188" /><Channel Value="0" />)"
       R"(<Cmd Value="2" Deferred="1" OverrideDeferred="1">Play</Cmd><Speed Value="-32760" IsShuttle="1">-50</Speed>)"
       R"(<Position Value="1234" TcType="frames">1234</Position></MediaCmd>)",
       R"({"MediaCmd" : {"CmdID":4196729344,"StructSize":4188,"Channel":0,"Cmd": {"Value":2,"String":"Play","Deferred":1,)"
       R"("OverrideDeferred":1,},"Speed": {"Value":-32760,"String":"-50","IsShuttle":1,},)"
       R"("Position": {"Value":1234,"TcType":"frames","TcString":"1234",},}})"},
      {"metadata tag request", ctGetValue, 0, cfUseCmdAlt | cfUseClipID, gsMetabaseGetTag, [](MEDIACMD& c) {
         std::strcpy(c.ClipID, "CLIP0001");
         std::memcpy(c.Payload, "Title\0\0" "2", 9);
       }, 8,
       R"(<CmdID Value="-98237952" /><StructSize Value="4188" /><Channel Value="0" />)"
       R"(<Cmd Value="14" UseClipID="1">GetValue</Cmd><CmdAlt Value="166" />)"
       R"(<Position Value="-1" TcType="pal">09:51:31:20</Position><MetaTag>Title</MetaTag><MetaData /><PageRequest>2</PageRequest></MediaCmd>)",
       R"({"MediaCmd" : {"CmdID":4196729344,"StructSize":4188,"Channel":0,"Cmd": {"Value":14,"String":"GetValue","UseClipID":1,},)"
       R"("CmdAlt": {"Value":166,},"Position": {"Value":-1,"TcType":"pal","TcString":"09:51:31:20",},)"
       R"("MetaTag":"Title","MetaData":"","PageRequest":"2",}})"},
      // Service-setting codes (above 1100000) write the start as unwrapped 60 fps text.
      {"command code 22 with presets, points, a service-setting start and a file", 22, 3,
       cfUseClipID | cfUseStart | cfUseEndOffset | cfTimeMs | cfUseCmdAlt | cfUsePresets | cfUseFrameCount, 1100001,
       [](MEDIACMD& c) {
         c.Start = 90000;
         c.End = 250;
         c.VideoChannels = 1, c.AudioChannels = 3, c.InfoChannels = 0;
         std::strcpy(c.ClipID, "AB&<");
         std::strcpy(c.Payload, "D:\\clips\\a \"b\".mov");
       }, 8,
       R"(<CmdID Value="-98237952" /><StructSize Value="4188" /><Channel Value="3" /><Cmd Value="22" UseClipID="1">Unknown</Cmd>)"
       R"(<ctltimecode Value="1" TcType="pal">00:00:00:01</ctltimecode><ltctimecode Value="3" TcType="pal">00:00:00:03</ltctimecode>)"
       R"(<vitctimecode Value="0" TcType="pal">00:00:00:00</vitctimecode><VideoChannels Value="1" /><AudioChannels Value="3" />)"
       R"(<InfoChannels Value="0" /><CmdAlt Value="1100001" TimeMs="1" />)"
       R"(<Position Value="-1" TcType="pal" UsingFrameCount="1">09:51:31:20</Position>)"
       R"(<Start Value="90000" TcType="pal" UsingFrameCount="1">00:25:00:00</Start>)"
       R"(<End Value="250" TcType="pal" IsOffset="1" UsingFrameCount="1">00:00:10:00</End>)"
       R"(<ClipID>AB&amp;&lt;</ClipID><FileName>D:\clips\a &quot;b&quot;.mov</FileName></MediaCmd>)",
       R"({"MediaCmd" : {"CmdID":4196729344,"StructSize":4188,"Channel":3,"Cmd": {"Value":22,"String":"Unknown","UseClipID":1,},)"
       R"("ctltimecode": {"Value":1,"TcType":"pal","TcString":"00:00:00:01",},)"
       R"("ltctimecode": {"Value":3,"TcType":"pal","TcString":"00:00:00:03",},)"
       R"("vitctimecode": {"Value":0,"TcType":"pal","TcString":"00:00:00:00",},"VideoChannels":1,"AudioChannels":3,"InfoChannels":0,)"
       R"("CmdAlt": {"Value":1100001,"TimeMs":1,},"Position": {"Value":-1,"TcType":"pal","TcString":"09:51:31:20","UsingFrameCount":1,},)"
       R"("Start": {"Value":90000,"TcType":"pal","TcString":"00:25:00:00","UsingFrameCount":1,},)"
       R"("End": {"Value":250,"TcType":"pal","TcString":"00:00:10:00","IsOffset":1,"UsingFrameCount":1,},)"
       R"("ClipID":"AB&<","FileName":"D:\\clips\\a \"b\".mov",}})"},
      {"IP video settings", ctSetValue, kUnset, cfUseCmdAlt | cfUseStart, gsIpVideoSettings, [](MEDIACMD& c) {
         c.Start = 5004;
         c.End = 5005;
         c.AudioChannels = 15;
         std::memcpy(c.Payload, "239.1.1.1\0" "10.0.0.2\0" "eth0", 24);
       }, 0,
       R"(<CmdID Value="-98237952" /><StructSize Value="4188" /><Channel Value="-1" /><Cmd Value="15">SetValue</Cmd>)"
       R"(<CmdAlt Value="801" /><Position Value="-1" TcType="frames">-1</Position>)"
       R"(<Start Value="5004" TcType="frames">5004</Start><destinationipaddress>239.1.1.1</destinationipaddress>)"
       R"(<sourceipaddress>10.0.0.2</sourceipaddress><interfaceipaddress>eth0</interfaceipaddress>)"
       R"(<Start Value="5004" /><End Value="5005" /><AudioChannels Value="15" /></MediaCmd>)",
       R"({"MediaCmd" : {"CmdID":4196729344,"StructSize":4188,"Channel":4294967295,"Cmd": {"Value":15,"String":"SetValue",},)"
       R"("CmdAlt": {"Value":801,},"Position": {"Value":-1,"TcType":"frames","TcString":"-1",},)"
       R"("Start": {"Value":5004,"TcType":"frames","TcString":"5004",},"destinationipaddress":"239.1.1.1",)"
       R"("sourceipaddress":"10.0.0.2","interfaceipaddress":"eth0","start":5004,"end":5005,"audiochannels":15,}})"},
      {"frame data as hex", ctGetValue, kUnset, cfUseCmdAlt, gsFrameData,
       [](MEDIACMD& c) { std::memcpy(c.Payload, "\x03\0\0\0\x01\xAB\xFF", 7); }, 4,
       R"(<CmdID Value="-98237952" /><StructSize Value="4188" /><Channel Value="-1" /><Cmd Value="14">GetValue</Cmd>)"
       R"(<CmdAlt Value="25" /><Position Value="-1" TcType="drop-frame">16:01:25;11</Position>)"
       R"(<arbID Type="hex" length="3">01ABFF</arbID></MediaCmd>)",
       R"({"MediaCmd" : {"CmdID":4196729344,"StructSize":4188,"Channel":4294967295,"Cmd": {"Value":14,"String":"GetValue",},)"
       R"("CmdAlt": {"Value":25,},"Position": {"Value":-1,"TcType":"drop-frame","TcString":"16:01:25;11",},)"
       R"("arbID": {"Type":"hex","length":3,"String":"01ABFF",},}})"},
      {"metabase file name with a unique id, on any command", ctStop, kUnset, cfUseCmdAlt, gsMetabaseFileName, [](MEDIACMD& c) {
         c.prev = 0x100000005;  // only the low 32 bits travel
         std::strcpy(c.ClipID, "C1");
         std::strcpy(c.Payload, "u-77$clip$1.mxf");
       }, 1,
       R"(<prev Value="5" /><CmdID Value="-98237952" /><StructSize Value="4188" /><Channel Value="-1" /><Cmd Value="0">Stop</Cmd>)"
       R"(<CmdAlt Value="162" /><Position Value="-1" TcType="film">06:16:10:15</Position>)"
       R"(<ClipID>C1</ClipID><UniqueID>u-77</UniqueID><FileName>clip$1.mxf</FileName></MediaCmd>)",
       R"({"MediaCmd" : {"prev":5,"CmdID":4196729344,"StructSize":4188,"Channel":4294967295,"Cmd": {"Value":0,"String":"Stop",},)"
       R"("CmdAlt": {"Value":162,},"Position": {"Value":-1,"TcType":"film","TcString":"06:16:10:15",},)"
       R"("ClipID":"C1","UniqueID":"u-77","FileName":"clip$1.mxf",}})"},
  };
  for (const Golden& g : goldens) {
    SCOPED_TRACE(g.name);
    MEDIACMD cmd;
    initMediaCmd(&cmd, g.cmd);
    cmd.Channel = g.channel;
    cmd.CtrlFlags = g.flags;
    cmd.CmdAlt = g.cmdAlt;
    if (g.more) g.more(cmd);
    EXPECT_EQ(xmlOf(cmd, g.tcType), kHead + g.xml);
    EXPECT_EQ(jsonOf(cmd, g.tcType), g.json);
  }
}

// Each timecode type's name, and for the non-drop types the point texts against SMPTE
// arithmetic done here (fps 0: not checked).
TEST(MediaCmdGolden, TimecodeTypesAndPointTexts) {
  const struct {
    unsigned type;
    const char* name;
    uint32_t fps;
  } types[] = {{0, "frames", 0},      {255, "frames", 0},   {1, "film", 24},     {2, "non-drop-frame", 30},
               {4, "drop-frame", 0},  {8, "pal", 25},       {16, "50", 50},      {32, "59.94", 0},
               {64, "60", 60},        {128, "film-drop", 24}, {132, "23.98", 0}, {3, "drop-frame", 0},
               {1000, "drop-frame", 0}};
  for (const auto& t : types) {
    for (int32_t value : {0, 1, 59, 3599 * 25, 123456, 86400 * 24 - 1}) {
      MEDIACMD cmd;
      initMediaCmd(&cmd, ctStop);
      cmd.Position = value;
      const std::string xml = xmlOf(cmd, t.type);
      EXPECT_NE(xml.find(std::string("TcType=\"") + t.name + "\""), std::string::npos) << t.type << " " << xml;
      if (!t.fps) continue;
      uint32_t frames = static_cast<uint32_t>(value) % (86400u * t.fps);
      char want[64];
      std::snprintf(want, sizeof want, ">%02u:%02u:%02u:%02u</Position>", frames / t.fps / 3600, frames / t.fps / 60 % 60,
                    frames / t.fps % 60, frames % t.fps);
      EXPECT_NE(xml.find(want), std::string::npos) << t.type << " " << value << " " << want;
    }
  }
}

// The record is made as for Golden.
struct DumpCase {
  const char* name;
  unsigned cmd;
  uint32_t channel, flags, cmdAlt;
  std::function<void(MEDIACMD&)> more;
  std::string line;  // empty: nothing is traced
};

TEST(MediaCmdDebugDump, Lines) {
  const DumpCase cases[] = {
      {"get state is not traced", ctGetState, kUnset, 0, kUnset, nullptr, ""},
      {"set state is not traced", ctSetState, kUnset, 0, kUnset, nullptr, ""},
      {"fresh stop", ctStop, kUnset, 0, kUnset, nullptr, "klx-Chan-1 ctStop "},
      {"get value by name, no blank after it", ctGetValue, 2, 0, 0x9, nullptr, "klx-Chan2 ctGetValue(start)"},
      {"get value of an unknown code", ctGetValue, 2, 0, 0x24, nullptr, "klx-Chan2 ctGetValue(36, 0x24) "},
      {"code 22 adds no command", 22, 0, 0, kUnset, nullptr, "klx-Chan0 "},
      {"every piece", ctPlay, 1,
       cfDeferred | cfUseSpeed | cfUsePosition | cfUseStart | cfUseStartOffset | cfUseEnd | cfUseEndOffset | cfUseCmdAlt |
           cfUseClipID,
       40,
       [](MEDIACMD& c) {
         c.Speed = 32760;
         c.Position = 10, c.Start = 20, c.End = 30;
         c.VideoChannels = 1, c.AudioChannels = 2, c.InfoChannels = 4;
         std::strcpy(c.ClipID, "CLIP");
         std::strcpy(c.Payload, "a.mov");
       },
       "klx-Chan1 ctPlay Deferred UseSpeed (50) UsePosition (10) Use Start (20) UseStartOffset (20) UseEnd (30) "
       "UseEndOffset (30) CmdAlt: (40) UsePresets: V(1)A(2)I(4) UseClipId: (CLIP)(a.mov) "},
      // The unset speed prints its true 64-bit quotient.
      {"unset speed", ctRecord, 0, cfUseSpeed, kUnset, nullptr, "klx-Chan0 ctRecord UseSpeed (3277600) "},
      {"presets shown with the position flag, not the presets flag", ctPause, 0, cfUsePosition, kUnset,
       [](MEDIACMD& c) { c.Position = 5; }, "klx-Chan0 ctPause UsePosition (5) UsePresets: V(-1)A(-1)I(-1) "},
      {"presets flag alone shows nothing", ctPause, 0, cfUsePresets, kUnset, nullptr, "klx-Chan0 ctPause "},
      {"target time", ctEdit, 0, cfUseCmdAlt | cfTimeMs | cfTimeTarget, 7, nullptr, "klx-Chan0 ctEdit CmdTarget: (7) "},
      {"house clock", ctSwitch, 0, cfUseCmdAlt | cfTimeMs | cfTimeHouseClock, 7, nullptr, "klx-Chan0 ctSwitch CmdHouse: (7) "},
      {"time in ms", ctAbort, 0, cfUseCmdAlt | cfTimeMs, 7, nullptr, "klx-Chan0 ctAbort CmdTime: (7) "},
      {"time flags without usecmdalt show nothing", ctAbort, 0, cfTimeMs, kUnset, nullptr, "klx-Chan0 ctAbort "},
      {"payload filling the whole tail", ctEject, 0, cfUseClipID, kUnset,
       [](MEDIACMD& c) {
         std::memset(c.ClipID, 'C', sizeof c.ClipID);  // no terminator anywhere
         std::memset(c.Payload, 'p', sizeof c.Payload);
       },
       "klx-Chan0 ctEject UseClipId: (" + std::string(9, 'C') + ")(" + std::string(4103, 'p') + ") "},
  };
  for (const DumpCase& c : cases) {
    SCOPED_TRACE(c.name);
    MEDIACMD cmd;
    initMediaCmd(&cmd, c.cmd);
    cmd.Channel = c.channel;
    cmd.CtrlFlags = c.flags;
    cmd.CmdAlt = c.cmdAlt;
    if (c.more) c.more(cmd);
    qtest::LogCapture log;
    __dbgout_mediacmd(&cmd);
    ASSERT_EQ(log.lines().size(), c.line.empty() ? 0u : 1u);
    if (c.line.empty()) continue;
    EXPECT_EQ(log.lines()[0].kind, ZR_LOG_DEBUG);
    EXPECT_EQ(log.lines()[0].text, c.line);
  }
  qtest::LogCapture log;
  __dbgout_mediacmd(nullptr);
  EXPECT_TRUE(log.lines().empty());
}

TEST(MediaCmdDebugDump, TimecodeLines) {
  const struct {
    unsigned value, type;
    const char* text;
  } cases[] = {{108000, 0, "1:00:00:00"}, {90000, 8, "1:00:00:00"}, {25, 0x108, "0:00:01:00"}, {107892, 4, "1:00:00:00"}};
  for (const auto& c : cases) {
    qtest::LogCapture log;
    __dbgout_tc(c.value, c.type);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].text, c.text) << c.value << " " << c.type;
  }
}

}  // namespace
