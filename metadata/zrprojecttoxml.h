// A project file: one clip list file, one edit decision list file and named settings, kept as
// XML. The project carries the whole text of both files, so a project moved to another
// directory recreates them next to itself when they are missing there.
//
//   <?xml version="1.0" encoding="ISO-8859-1" ?>
//   <ClipList FileName="/path/clips.txt" Data="...text of clips.txt..." />
//   <EdlList EdlName="/path/cut.edl" Data="...text of cut.edl..." />
//   <Settings Volume="11" Mode="fast" />
#pragma once
#include <cstddef>

class TiXmlDocument;
class TiXmlElement;

#define ZR_PROJECT_PATH_SIZE 4096

class CZRProjectToXML {
 public:
  CZRProjectToXML();
  ~CZRProjectToXML();
  CZRProjectToXML(const CZRProjectToXML&) = delete;
  CZRProjectToXML& operator=(const CZRProjectToXML&) = delete;

  // Loads the project at path. A clip or EDL file that exists neither at its stored path nor
  // (under its own name) next to the project is created there from the project's copy of its
  // text; an existing file is never overwritten. Returns the XML load result: false, with a
  // log line, for a file that cannot be read, is empty, is not well-formed, nests deeper than
  // the XML gate allows, or would not be written back as it reads.
  bool LoadXMLFile(const char* path);
  // Loads the project at path for reading only: names are resolved as LoadXMLFile resolves them
  // (a missing file is looked for next to the project), but nothing is written to disk.
  bool ReadXMLFile(const char* path);
  // True when the loaded document holds project elements (ClipList, EdlList, Settings) and no
  // other top-level element: a media command or any other XML file is not a project.
  bool IsProject();
  // Saves to the XML name. Returns the XML save result.
  bool SaveXMLFile();

  // The path buffers hold ZR_PROJECT_PATH_SIZE bytes; longer paths are cut to fit. The
  // one-argument getters trust out to hold ZR_PROJECT_PATH_SIZE bytes; the sized forms refuse
  // (-1, out untouched) when outSize is too small for the value.
  int SetXMLName(const char* path);
  int GetXMLName(char* out);
  int GetXMLName(char* out, size_t outSize);
  // Records the clip list file and takes a copy of its text (when it can be read). A file
  // holding a NUL byte cannot be carried: its name is recorded without text and the result is -1.
  int SetClipFile(const char* path);
  int GetClipFile(char* out);
  int GetClipFile(char* out, size_t outSize);
  // Records the EDL file and takes a copy of its text (when it can be read).
  int SetEDLName(const char* path);
  int GetEDLName(char* out);
  int GetEDLName(char* out, size_t outSize);

  // Settings are attributes of "Settings": name must be an XML name (-1 otherwise).
  int SetConfigString(const char* name, const char* value);
  // Copies the setting into out (at most 4095 characters, terminated at position 4095, so out
  // must hold ZR_PROJECT_PATH_SIZE bytes); out is untouched when the setting is missing.
  int GetConfigString(const char* name, char* out);
  int GetConfigString(const char* name, char* out, size_t outSize);
  int SetConfigDWORD(const char* name, unsigned int value);
  // The setting as a decimal number; 0 when it is missing.
  unsigned int GetConfigDWORD(const char* name);

  // Settings in file order: the count, and the name and value of one of them (0, or -1 when
  // index is out of range or a buffer is too small).
  int GetConfigCount();
  int GetConfigAt(int index, char* name, size_t nameSize, char* value, size_t valueSize);
  // Length of the embedded text of the clip list (clip = true) or EDL file; 0 when none.
  size_t GetDataLength(bool clip);

 private:
  void resolveElements();
  int setListFile(TiXmlElement* list, const char* nameAttribute, char* buffer, const char* path);
  bool load(const char* path, bool recreate);
  void restoreListFile(const char* elementName, const char* nameAttribute, char* buffer, bool create);

  char xmlName[ZR_PROJECT_PATH_SIZE];
  char clipFile[ZR_PROJECT_PATH_SIZE];
  char edlName[ZR_PROJECT_PATH_SIZE];
  TiXmlDocument* document;
  TiXmlElement* clipList;
  TiXmlElement* edlList;
  TiXmlElement* settings;
};
