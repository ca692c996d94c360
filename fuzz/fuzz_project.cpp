// Project files from arbitrary bytes: loading never crashes, never overwrites a file that is
// already there, and a loaded project saves and loads again. The same bytes as text go through
// the TcType finder.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "metadata/klxinfo.h"
#include "metadata/zrprojecttoxml.h"
#include "fuzz_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  sklxInfoFindTcType(text.c_str());

  // A file the project may name but must leave as it is.
  const std::string keep = scratchDir() + "/keep.txt", project = scratchDir() + "/p.xml";
  std::ofstream(keep, std::ios::binary) << "original";
  std::ofstream(project, std::ios::binary) << text;
  CZRProjectToXML p;
  if (p.LoadXMLFile(project.c_str())) {
    if (!p.SaveXMLFile()) std::abort();
    CZRProjectToXML again;
    if (!again.LoadXMLFile(project.c_str())) std::abort();
  }
  if (slurp(keep) != "original") std::abort();
  return 0;
}
