// Writing and reading a typical play command in both text forms.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "mediacmd/mediacmd.h"
#include "platform/tcxlat.h"

namespace {

// Play clip "CLIP0042" (a file) on channel 1 from 01:00:00;00 at normal speed, video and
// audio channels 1 and 1-2.
MEDIACMD typicalPlay() {
  MEDIACMD cmd;
  initMediaCmd(&cmd, ctPlay);
  cmd.Channel = 1;
  cmd.CtrlFlags = cfUseSpeed | cfUsePosition | cfUsePresets | cfUseClipID;
  cmd.Speed = MEDIACMD_SPEED_NORMAL;
  cmd.Position = 107892;
  cmd.VideoChannels = 0x1, cmd.AudioChannels = 0x3, cmd.InfoChannels = 0x1;
  std::strcpy(cmd.ClipID, "CLIP0042");
  std::strcpy(cmd.Payload, "D:\\media\\news\\CLIP0042.mov");
  return cmd;
}

std::string written(bool json) {
  MEDIACMD cmd = typicalPlay();
  char* text = nullptr;
  json ? MediaCmdToJSONString(&text, &cmd, TC_DF2997) : MediaCmdToXMLString(&text, &cmd, TC_DF2997);
  std::string out = text;
  json ? MediaCmdFreeJSONString(&text) : MediaCmdFreeXMLString(&text);
  return out;
}

void BM_MediaCmdWriteXml(benchmark::State& state) {
  MEDIACMD cmd = typicalPlay();
  for (auto _ : state) {
    char* text = nullptr;
    MediaCmdToXMLString(&text, &cmd, TC_DF2997);
    benchmark::DoNotOptimize(text);
    MediaCmdFreeXMLString(&text);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_MediaCmdWriteXml);

void BM_MediaCmdReadXml(benchmark::State& state) {
  const std::string text = written(false);
  MEDIACMD cmd;
  for (auto _ : state) {
    unsigned tcType = TC_DF2997;
    benchmark::DoNotOptimize(MediaCmdFromXMLString(&cmd, &tcType, text.c_str()));
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
}
BENCHMARK(BM_MediaCmdReadXml);

void BM_MediaCmdWriteJson(benchmark::State& state) {
  MEDIACMD cmd = typicalPlay();
  for (auto _ : state) {
    char* text = nullptr;
    MediaCmdToJSONString(&text, &cmd, TC_DF2997);
    benchmark::DoNotOptimize(text);
    MediaCmdFreeJSONString(&text);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_MediaCmdWriteJson);

void BM_MediaCmdReadJson(benchmark::State& state) {
  const std::string text = written(true);
  MEDIACMD cmd;
  for (auto _ : state) benchmark::DoNotOptimize(MediaCmdFromJSONString(&cmd, nullptr, text.c_str()));
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
}
BENCHMARK(BM_MediaCmdReadJson);

}  // namespace
