// What a CUPS queue offers a copy, and what the copy asks it for: the paper chosen by size
// from the queue's own sizes (its driver's names, its overscan), the tray and the media type
// only where the driver has such a choice, and the resolution the page is made for.
#pragma once

#include <cups/cups.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kps {

struct Resolution {
  double x = 300, y = 300;  // dots per inch
};

// The queue's default resolution (printer-resolution); 300 dpi where it does not say.
Resolution queueResolution(cups_dest_t* dest, cups_dinfo_t* info);

// One paper size a queue offers: the name a job asks for it by, the name people know it by,
// and its size and margins in hundredths of a millimetre (`size.media` holds the name too).
struct QueueSize {
  std::string name;  // a PPD's own ("w288h432"), else the scheduler's ("na_index-4x6_4x6in")
  std::string text;  // the PPD's words for it ("4x6"), or ""
  cups_size_t size{};
  std::string label() const;  // "w288h432 (4x6, 104.99 x 162.56 mm)"
  // A sheet the driver cuts ("w288h432-div2", "2x6*2"), a page made of two ("w288h288_w288h144",
  // "4x4+4x2") or a borderless twin: not the plain paper a size is ordered on.
  bool cutOrComposite() const;
};

// The queue's sizes: its driver's own (its PPD's PageSize names, which alone reach the driver
// unambiguously: sizes of equal outer dimensions, as a dye-sub's 2x6 and 4x6, share one name in
// the scheduler's media database), else the scheduler's media database. Empty when it lists none.
std::vector<QueueSize> queueSizes(cups_dest_t* dest, cups_dinfo_t* info);

// A driver pads the paper it prints to the edge by its overscan; more than this on an edge is
// other paper.
inline constexpr int kMostOverscan = 400;  // hundredths of a millimetre

// The size to print `width` x `length` (hundredths of a millimetre) on: the smallest whose
// printable area holds it with at most kMostOverscan more on each edge, the first of equals; a
// plain one always before a cut or composite one of any size, which is taken only when no plain
// one holds the size. Null when none does: the copy is not printed on other paper.
const QueueSize* sizeFor(const std::vector<QueueSize>& sizes, int width, int length);

// A queue's choices for a job option ("media-source", "media-type"): empty when its driver
// has none, and then nothing is sent for it.
std::vector<std::string> queueChoices(cups_dest_t* dest, cups_dinfo_t* info, const char* option);

// The paper a queue has for a configured paper number.
struct QueuePaper {
  enum class Found { Exact, Driver, None, Unknown };
  Found found = Found::Unknown;  // Exact: the queue has the size by its standard name; Driver: by
                                 // its driver's size for it; None: the queue lacks it; Unknown:
                                 // the queue lists no sizes at all
  std::string wanted;            // the configured size's standard name ("na_index-4x6_4x6in")
  std::string wantedSize;        // "101.6 x 152.4 mm"
  QueueSize paper;               // what a copy asks for (Exact, Driver)
  std::vector<QueueSize> offers;  // the queue's sizes (Driver, None)
};

// Empty when the number has no CUPS name (the README's paper table).
std::optional<QueuePaper> queuePaperFor(cups_dest_t* dest, cups_dinfo_t* info, std::int32_t paper);

// A tray or a media type: sent only where the driver has such a choice.
struct MediaOption {
  std::vector<std::string> offers;  // the driver's choices; empty: none, and nothing is sent
  std::optional<std::string> name;  // the configured number's CUPS name
  bool sent() const { return !offers.empty(); }
};
MediaOption mediaSourceFor(cups_dest_t* dest, cups_dinfo_t* info, std::int32_t bin);
MediaOption mediaTypeFor(cups_dest_t* dest, cups_dinfo_t* info, std::int32_t mediaType);

// The paper, tray and media type a copy of the configured numbers asks a queue for: the one
// choice that the copy makes and that --check and --test-page report.
struct CopyMedia {
  std::optional<QueuePaper> paper;  // empty: the paper number has no CUPS name
  MediaOption source, type;
};

CopyMedia copyMediaFor(cups_dest_t* dest, cups_dinfo_t* info, std::int32_t paper, std::int32_t bin,
                       std::int32_t mediaType);

}  // namespace kps
