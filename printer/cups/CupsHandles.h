// Owners of what libcups hands out, released on every path.
#pragma once

#include <cups/cups.h>

#include <memory>
#include <string>

namespace kps {

struct DestDeleter {
  void operator()(cups_dest_t* dest) const { cupsFreeDests(1, dest); }
};
using Dest = std::unique_ptr<cups_dest_t, DestDeleter>;

struct DestInfoDeleter {
  void operator()(cups_dinfo_t* info) const { cupsFreeDestInfo(info); }
};
using DestInfo = std::unique_ptr<cups_dinfo_t, DestInfoDeleter>;

struct IppDeleter {
  void operator()(ipp_t* ipp) const { ippDelete(ipp); }
};
using Ipp = std::unique_ptr<ipp_t, IppDeleter>;

inline Dest openDest(const std::string& name) {
  return Dest(cupsGetNamedDest(CUPS_HTTP_DEFAULT, name.c_str(), nullptr));
}

}  // namespace kps
