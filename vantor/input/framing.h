// Packets in a capture's bytes: finds the grid of sync bytes, follows it, and finds it again.
//
// A grid is a first sync byte and a distance: 188 bytes; 192, where a record begins with 4 bytes of
// arrival time; 204 and 208, where bytes of error correction follow the packet.
//
//   framing packets(source, 0);
//   if (!packets.start(1))
//     return "no packet";
//   for (framing_step step; (step = packets.next(SIZE_MAX)).what != framing_step::END;)
//     if (step.what == framing_step::PACKETS)
//       packets.took(look_at(step));
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "input/byte_input.h"

struct framing_step {
  enum step_kind {
    PACKETS,  // at most `count`, packet_size() apart; `bytes` is the first one's sync byte
    BAD_SYNC, // one packet whose sync byte is wrong while the next one's is right
    LOSS,     // sync lost: `lost_bytes` until packets go on, or to the end
    END,
    STARVED, // more bytes have to come first
  };
  step_kind what = END;
  const uint8_t *bytes = nullptr; // in place, valid until the next step
  size_t count = 0;
  uint64_t offset = 0; // of the sync byte, or where it should be
  uint64_t lost_bytes = 0;
};

class framing {
public:
  // `packet_size`: 188, 192, 204, 208, or 0: to be found.
  framing(byte_input &source, size_t packet_size);

  // Finds the grid and goes to its packet number `first` (1-based). False: there is no packet. Of a
  // source that can be starved `first` is 1; false then also means to start again with more bytes.
  bool start(uint64_t first);

  // What comes next; of packets at most `most`, which is not 0. Nothing follows an END.
  framing_step next(uint64_t most);

  // How many of those packets were taken: 1 at least, up to the first one whose sync byte is wrong.
  // Only who reads a packet looks there, so that each is fetched from memory once.
  void took(size_t count) { place += count * size; }

  size_t packet_size() const { return has_grid ? size : 0; }
  uint64_t leading_bytes() const { return leading; } // before its first record
  uint64_t tail_bytes() const { return tail; }       // behind the last record, after END
  // Of the capture, to the next record; after END, all there were.
  uint64_t bytes_read() const;

private:
  enum class found { grid, nothing, too_little }; // bytes, to tell

  uint64_t record_begin() const { return place - stamp(); } // of the next record
  found search();
  std::span<const uint8_t> look(uint64_t from, size_t least);
  framing_step end();
  framing_step lose_sync();
  framing_step regain_sync();
  size_t stamp() const;

  byte_input &source;
  size_t size;                            // of a record, bytes; 0 until it is known
  bool has_grid = false;                  // one was found
  bool is_lost = false;                   // sync, to the end
  bool is_searching = false;              // sync was lost at `place`
  bool is_over = false;                   // END was handed out
  uint64_t place = 0;                     // next sync byte
  uint64_t search_from = 0, searched = 0; // where a search begins, and how far it came
  uint64_t leading = 0, tail = 0;
  uint64_t seen = 0;                 // bytes fetched, of all
  std::optional<framing_step> ahead; // looked at by start()
};
