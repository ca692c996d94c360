// The quorvane subcommands. Each lives in its own cmd_<name>.cpp and receives the arguments
// that follow its name (argv[0] is the first of them).
#pragma once

struct SubCommand {
  const char* name;
  const char* summary;
  int (*run)(int argc, char** argv);
};

int cmdTc(int argc, char** argv);
int cmdCmd(int argc, char** argv);
int cmdFormat(int argc, char** argv);
int cmdConfig(int argc, char** argv);
int cmdMeta(int argc, char** argv);
int cmdProject(int argc, char** argv);
int cmdParams(int argc, char** argv);
int cmdHvcc(int argc, char** argv);
int cmdAvcc(int argc, char** argv);
int cmdDvcc(int argc, char** argv);
int cmdHdr(int argc, char** argv);
int cmdNal(int argc, char** argv);
int cmdReframe(int argc, char** argv);
int cmdInspect(int argc, char** argv);
int cmdStamp(int argc, char** argv);
int cmdCaptions(int argc, char** argv);
int cmdAdts(int argc, char** argv);
int cmdNames(int argc, char** argv);
