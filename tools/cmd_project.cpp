// quorvane project: print or create a project file (clip list, EDL and settings as XML).
#include <cstdio>
#include <filesystem>
#include <string>

#include "cli.h"
#include "commands.h"
#include "metadata/zrprojecttoxml.h"
#include "platform/zrfile.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane project show [--json] FILE\n"
    "       quorvane project create [--clip PATH] [--edl PATH] [--set NAME=VALUE]... [--force] FILE\n\n"
    "A project file names one clip list file and one EDL file, carries the text of both, and\n"
    "holds named settings.\n"
    "  show     prints the project. Loading it recreates a clip list or EDL file that is\n"
    "           missing (at its stored path and next to FILE) next to FILE from the text the\n"
    "           project carries; existing files are never overwritten\n"
    "  create   writes FILE (refused when it exists, unless --force). --clip and --edl name the\n"
    "           files and embed their text; --set adds a setting (repeatable; NAME must be an\n"
    "           XML name)\n";

constexpr const char* kCommand = "project";

int show(const std::string& path, bool json) {
  if (!zrOSFileExists(path.c_str())) return cli::failWith(cli::kFailed, kCommand, "no such file '%s'", path.c_str());
  CZRProjectToXML project;
  if (!project.LoadXMLFile(path.c_str()))
    return cli::failWith(cli::kFailed, kCommand, "'%s' is not a readable project file", path.c_str());
  char clip[ZR_PROJECT_PATH_SIZE], edl[ZR_PROJECT_PATH_SIZE];
  project.GetClipFile(clip);
  project.GetEDLName(edl);
  cli::Json out;
  out.beginObject().str("project", path);
  out.beginObject("clipList").str("path", clip).num("embeddedBytes", int64_t(project.GetDataLength(true)))
      .boolean("exists", clip[0] && zrOSFileExists(clip)).endObject();
  out.beginObject("edl").str("path", edl).num("embeddedBytes", int64_t(project.GetDataLength(false)))
      .boolean("exists", edl[0] && zrOSFileExists(edl)).endObject();
  if (!json) {
    std::printf("project    %s\n", path.c_str());
    std::printf("clip list  %s (%zu bytes embedded%s)\n", clip[0] ? clip : "(none)", project.GetDataLength(true),
                clip[0] && !zrOSFileExists(clip) ? ", file missing" : "");
    std::printf("EDL        %s (%zu bytes embedded%s)\n", edl[0] ? edl : "(none)", project.GetDataLength(false),
                edl[0] && !zrOSFileExists(edl) ? ", file missing" : "");
    std::printf("settings   %d\n", project.GetConfigCount());
  }
  out.beginObject("settings");
  static char name[ZR_PROJECT_PATH_SIZE], value[1 << 20];
  for (int i = 0; i < project.GetConfigCount(); ++i) {
    if (project.GetConfigAt(i, name, sizeof name, value, sizeof value) != 0) continue;
    if (json) out.str(name, value);
    else std::printf("  %s = %s\n", name, value);
  }
  if (json) std::printf("%s\n", out.endObject().endObject().text().c_str());
  return cli::kOk;
}

int create(const std::string& path, const cli::Args& args) {
  if (zrOSFileExists(path.c_str()) && !args.has("force"))
    return cli::failWith(cli::kFailed, kCommand, "'%s' exists (use --force to replace it)", path.c_str());
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
  return cli::kOk;
}

}  // namespace

int cmdProject(int argc, char** argv) {
  cli::Args args;
  if (!args.parse(argc, argv, {"clip", "edl", "set"}, {"json", "force"}))
    return cli::fail(kCommand, "%s", args.error().c_str());
  if (args.has("help")) {
    std::fputs(kUsage, stdout);
    return cli::kOk;
  }
  const auto& pos = args.positional();
  if (pos.size() != 2 || (pos[0] != "show" && pos[0] != "create"))
    return cli::fail(kCommand, "expected 'show FILE' or 'create FILE'; see --help");
  try {
    return pos[0] == "show" ? show(pos[1], args.has("json")) : create(pos[1], args);
  } catch (const std::exception& e) {
    return cli::failWith(cli::kFailed, kCommand, "%s", e.what());
  }
}
