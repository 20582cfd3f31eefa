// A read-only IStream over a file the service already holds open, for GDI+: what it decodes is
// the file whose header was read, whatever the path names by then. The stream owns the file;
// COM's references own the stream, since GDI+ may keep it for as long as the picture lives.
#pragma once

#include <windows.h>
#include <objidl.h>

#include <memory>

#include "base/FilePath.h"

namespace kps {

struct ComReleaser {
  void operator()(IUnknown* object) const { object->Release(); }
};
using StreamPtr = std::unique_ptr<IStream, ComReleaser>;

// Null for no file, or when there is no memory for the stream.
StreamPtr streamOnFile(FilePtr file);

}  // namespace kps
