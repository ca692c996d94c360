// quorvane project: print or create a project file (clip list, EDL and settings as XML).
#include <cstdio>
#include <filesystem>
#include <string>

#include "cli.h"
#include "commands.h"
#include "metadata/zrprojecttoxml.h"
#include "platform/zrfile.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane project show [--json] FILE\n"
    "       quorvane project create [--clip PATH] [--edl PATH] [--set NAME=VALUE]... [-y] FILE\n\n"
    "A project file names one clip list file and one EDL file, carries the text of both, and\n"
    "holds named settings.\n"
    "  show     prints the project; it only reads. A clip list or EDL file missing at its stored\n"
    "           path is looked for next to FILE and reported missing when it is not there\n"
    "           (a host loading the project recreates it there from the embedded text).\n"
    "           A file that is not a project (a media command, other XML) is refused.\n"
    "  create   writes FILE (refused when it exists, unless -y/--force). --clip and --edl name\n"
    "           the files and embed their text; --set adds a setting (repeatable; NAME must\n"
    "           be an XML name)";
constexpr const char* kFooter =
    "--json shape (show): {\"project\": PATH, \"clipList\": {\"path\", \"embeddedBytes\", \"exists\"},\n"
    "  \"edl\": {\"path\", \"embeddedBytes\", \"exists\"}, \"settings\": [{\"name\", \"value\"}]}\n";

constexpr const char* kCommand = "project";

int show(const std::string& path, bool json) {
  if (!zrOSFileExists(path.c_str())) return cli::failWith(cli::kFailed, kCommand, "no such file '%s'", path.c_str());
  CZRProjectToXML project;
  const std::string before = cli::lastLibraryMessage();
  if (!project.ReadXMLFile(path.c_str())) {
    const std::string& said = cli::lastLibraryMessage();
    const size_t reason = said.rfind("is refused: ");
    const std::string why = said != before && reason != std::string::npos ? said.substr(reason + 12) : "it is not well-formed XML";
    return cli::failWith(cli::kFailed, kCommand, "'%s' is refused: %s", path.c_str(),
                         why.substr(0, why.find_last_not_of("\r\n") + 1).c_str());
  }
  if (!project.IsProject())
    return cli::failWith(cli::kFailed, kCommand, "'%s' is not a project file (no ClipList, EdlList or Settings)",
                         path.c_str());
  char clip[ZR_PROJECT_PATH_SIZE], edl[ZR_PROJECT_PATH_SIZE];
  project.GetClipFile(clip);
  project.GetEDLName(edl);
  cli::JsonValue out{
      {"project", path},
      {"clipList",
       {{"path", clip}, {"embeddedBytes", project.GetDataLength(true)}, {"exists", clip[0] && zrOSFileExists(clip)}}},
      {"edl", {{"path", edl}, {"embeddedBytes", project.GetDataLength(false)}, {"exists", edl[0] && zrOSFileExists(edl)}}},
      {"settings", cli::JsonValue::array()}};
  if (!json) {
    std::printf("project    %s\n", path.c_str());
    std::printf("clip list  %s (%zu bytes embedded%s)\n", clip[0] ? clip : "(none)", project.GetDataLength(true),
                clip[0] && !zrOSFileExists(clip) ? ", file missing" : "");
    std::printf("EDL        %s (%zu bytes embedded%s)\n", edl[0] ? edl : "(none)", project.GetDataLength(false),
                edl[0] && !zrOSFileExists(edl) ? ", file missing" : "");
    std::printf("settings   %d\n", project.GetConfigCount());
  }
  static char name[ZR_PROJECT_PATH_SIZE], value[1 << 20];
  for (int i = 0; i < project.GetConfigCount(); ++i) {
    if (project.GetConfigAt(i, name, sizeof name, value, sizeof value) != 0) continue;
    if (json) out["settings"].push_back({{"name", name}, {"value", value}});
    else std::printf("  %s = %s\n", name, value);
  }
  if (json) cli::printJson(out);
  return cli::kOk;
}

int create(const std::string& path, const cli::Command& args) {
  if (int rc = cli::checkOutput(kCommand, path, args.has("force")); rc != cli::kOk) return rc;
  CZRProjectToXML project;
  project.SetXMLName(path.c_str());
  struct ListFile {
    const char* option;
    int (CZRProjectToXML::*set)(const char*);
    bool clip;
  };
  for (const ListFile& list : {ListFile{"clip", &CZRProjectToXML::SetClipFile, true},
                               ListFile{"edl", &CZRProjectToXML::SetEDLName, false}}) {
    auto file = args.get(list.option);
    if (!file) continue;
    if (!zrOSFileExists(file->c_str())) return cli::failWith(cli::kFailed, kCommand, "no such file '%s'", file->c_str());
    // Stored absolute, so the project names the same file from any working directory.
    std::string absolute = std::filesystem::absolute(*file).lexically_normal().string();
    (project.*list.set)(absolute.c_str());
    if (project.GetDataLength(list.clip) == 0)
      std::fprintf(stderr, "quorvane project: warning: '%s' is empty or unreadable; its text is not embedded\n",
                   file->c_str());
  }
  for (const std::string& setting : args.all("set")) {
    size_t eq = setting.find('=');
    if (eq == std::string::npos) return cli::fail(kCommand, "bad setting '%s' (NAME=VALUE)", setting.c_str());
    std::string name = setting.substr(0, eq);
    if (project.SetConfigString(name.c_str(), setting.c_str() + eq + 1) != 0)
      return cli::fail(kCommand, "bad setting name '%s'", name.c_str());
  }
  if (!project.SaveXMLFile()) return cli::failWith(cli::kFailed, kCommand, "cannot write '%s'", path.c_str());
  if (args.has("json")) cli::printJson({{"project", path}, {"written", true}});
  return cli::kOk;
}

}  // namespace

int cmdProject(int argc, char** argv) {
  cli::Command args(kCommand, kAbout, kFooter);
  args.option("--clip", "create: the clip list file")
      .option("--edl", "create: the EDL file")
      .repeatable("--set", "create: a setting NAME=VALUE")
      .forceFlag()
      .flag("--json", "print JSON (shape below; create prints {\"project\", \"written\": true})")
      .positionals("ARGS", "show FILE or create FILE");
  if (auto exit = args.parse(argc, argv)) return *exit;
  const auto& pos = args.positional();
  if (pos.size() != 2 || (pos[0] != "show" && pos[0] != "create"))
    return cli::fail(kCommand, "expected 'show FILE' or 'create FILE'; see --help");
  try {
    return pos[0] == "show" ? show(pos[1], args.has("json")) : create(pos[1], args);
  } catch (const std::exception& e) {
    return cli::failWith(cli::kFailed, kCommand, "%s", e.what());
  }
}
