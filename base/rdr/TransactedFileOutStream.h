#pragma once

#include <string>

#include "rdr/FileOutStream.h"

namespace rdr {

// Writes a file beside its target, which it replaces when it is committed: the target is either as
// it was or complete, whatever happens. Errors: SystemException "open", "write", "fsync", "close"
// or "rename", plat::Exception for a target that is not a regular file.
class TransactedFileOutStream : public FileOutStream {
 public:
  // A link is followed, so that its target is replaced. The file is readable by its owner alone.
  explicit TransactedFileOutStream(const std::string& path);
  // Without commit() the target stays as it is.
  ~TransactedFileOutStream() override;

  // To be called once.
  void commit();

 private:
  struct Beside;
  TransactedFileOutStream(std::string target, Beside beside);

  const std::string target_;
  std::string temporary_;  // empty when it has gone
};

}  // namespace rdr
