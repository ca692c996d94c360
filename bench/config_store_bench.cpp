// The configuration store's costs: a read served from the handle's copy (one read of the file
// to check it is current), a single write (one transaction with fsync and rename), and a whole
// metadata-sized set of 150 values written one by one versus in one batch.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/zrcfg.h"

namespace {

struct TempStore {
  TempStore() {
    char pattern[] = "/tmp/quorvane-bench-XXXXXX";
    dir = mkdtemp(pattern);
    path = dir + "/bench.xml";
    handle = zrCFGOpen(path.c_str());
    // A store of realistic size: 150 items of a metadata record.
    zrCFGBeginBatch(handle);
    for (int i = 0; i < 150; ++i) fill(i, "initial text value");
    zrCFGEndBatch(handle, 1);
  }
  ~TempStore() {
    zrCFGClose(handle, 0);
    for (const char* suffix : {"", ".lock", ".tmp"}) unlink((path + suffix).c_str());
    rmdir(dir.c_str());
  }
  void fill(int i, const std::string& text) {
    uint32_t size = static_cast<uint32_t>(text.size() + 1);
    zrCFGValueString(handle, "Quorvane\\MetaData\\Default", ("Item" + std::to_string(i)).c_str(), const_cast<char*>(text.c_str()),
                     &size, 1);
  }
  std::string dir, path;
  ZRCFGHANDLE handle;
};

void BM_ConfigReadString(benchmark::State& state) {
  TempStore store;
  char buffer[64];
  for (auto _ : state) {
    uint32_t size = sizeof buffer;
    benchmark::DoNotOptimize(zrCFGValueString(store.handle, "Quorvane\\MetaData\\Default", "Item75", buffer, &size, 0));
  }
}
BENCHMARK(BM_ConfigReadString);

void BM_ConfigWriteDword(benchmark::State& state) {
  TempStore store;
  uint32_t value = 0;
  for (auto _ : state) {
    ++value;
    benchmark::DoNotOptimize(zrCFGValueDword(store.handle, "Quorvane\\Advanced", "Counter", &value, 1));
  }
}
BENCHMARK(BM_ConfigWriteDword)->Unit(benchmark::kMillisecond);

// The 150 values of a metadata record: batch:0 writes them one transaction each, batch:1 in one
// batch (one transaction for all). Compare batch:1 with 150 x BM_ConfigWriteDword, not with one.
void BM_ConfigWriteRecord(benchmark::State& state) {
  TempStore store;
  int round = 0;
  for (auto _ : state) {
    const std::string text = "value of round " + std::to_string(++round);
    if (state.range(0)) zrCFGBeginBatch(store.handle);
    for (int i = 0; i < 150; ++i) store.fill(i, text);
    if (state.range(0)) zrCFGEndBatch(store.handle, 1);
  }
}
BENCHMARK(BM_ConfigWriteRecord)->ArgName("batch")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
