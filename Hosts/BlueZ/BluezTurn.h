#pragma once

#include <cstdint>

namespace tandrell {

/// How an attempt to connect stands with the radio, which it shares with others (`BluezTurns`).
struct BluezTurn {
  bool calling = false;      ///< a call of Connect is under way
  bool yielded = false;      ///< the radio is to be left to others; it goes on with the next turn
  bool sighted = false;      ///< it was seen in reach since the last turn
  std::uint64_t number = 0;  ///< of the last turn; 0 if it had none

  void begin(std::uint64_t turn) { *this = {.calling = calling, .number = turn}; }
};

}  // namespace tandrell
