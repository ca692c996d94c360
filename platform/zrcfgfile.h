// Internal to the configuration store: one store file, its parsed copy and its transactions.
#pragma once
#include <tinyxml.h>

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace zrcfg {

// Root element of a store file.
inline constexpr const char* kRootElement = "QuorvaneConfig";

class StoreFile {
 public:
  // createParent: make the parent directories on the first write (the system store's XDG folder).
  StoreFile(std::string path, bool createParent);
  StoreFile(const StoreFile&) = delete;
  StoreFile& operator=(const StoreFile&) = delete;

  const std::string& path() const { return path_; }

  // Runs view on a copy that matches the file on disk. ZR_CFG_ERROR when the file cannot be read.
  int read(const std::function<int(const TiXmlDocument&)>& view);

  // An edit of the document; it must own what it refers to, as a batch replays it later.
  // Returns ZR_CFG_OK when it changed the document as asked.
  using Edit = std::function<int(TiXmlDocument&)>;

  // Under the store's lock: re-reads the file, runs edit on it, and when edit returns ZR_CFG_OK
  // and the document's text changed, writes the result (temporary file, fsync, rename).
  // Returns edit's result, or ZR_CFG_ERROR when the file cannot be locked, read or written.
  // Inside a batch the edit is applied to this handle's view only and kept for endBatch.
  int update(Edit edit);

  // Batches nest; the outermost endBatch writes every kept edit in one transaction (replaying
  // them on the file as it is then), or drops them when commit is false.
  int beginBatch();
  int endBatch(bool commit);
  // Ends every open batch at once (a handle being closed); ZR_CFG_OK when none was open.
  int endAllBatches(bool commit);

 private:
  bool refresh();  // brings doc_ in line with the disk; false when the file cannot be read
  int transact(const std::function<int(TiXmlDocument&)>& edits);  // lock, re-read, edit, write
  bool commit(const std::string& text);
  bool keepCorruptCopy(const std::string& target);

  std::mutex mutex_;  // one thread at a time per handle
  std::string path_;
  bool createParent_;
  bool loaded_ = false;
  std::string bytes_;     // the file's bytes as last read or written
  bool corrupt_ = false;  // bytes_ did not parse: doc_ is empty, bytes_ is kept aside on the next write
  TiXmlDocument doc_;
  int batchDepth_ = 0;
  std::vector<Edit> pending_;  // edits of the open batch
};

// Parses a store file's bytes into *parsed: null, or what is wrong with them (and *line).
const char* parseStore(const std::string& bytes, TiXmlDocument* parsed, int* line);
// Null when path is missing, blank or a well-formed store; otherwise why it is none.
const char* fileProblem(const std::string& path);

// The document text a store file holds for doc (declaration, indented elements).
std::string printStore(const TiXmlDocument& doc);

// Names and texts are stored escaped so that any byte string without a NUL survives the XML:
// printable ASCII and well-formed UTF-8 stand as they are; '%', '&', control characters, DEL,
// bytes that are not well-formed UTF-8 and the non-characters U+FEFF, U+FFFE, U+FFFF become
// "%XX" per byte. Reading turns "%XX" back into the byte and leaves any other '%' alone.
std::string escapeText(std::string_view raw);
std::string unescapeText(std::string_view stored);

}  // namespace zrcfg
