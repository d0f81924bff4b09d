#pragma once

#include <TandrellCore/Platform/Dispatch.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Proto/Names.h>

#include <cstddef>
#include <deque>
#include <functional>

namespace tandrell {

/// Whether there is a satellite to talk to, and what the device says when there is none.
enum class Reception {
  available,
  lost,   ///< transmissions end in an error after `giveUpDelay`
  silent  ///< transmissions stay where they are, without a word, until there is reception again
};

/// How long a transmission takes.
struct SatelliteTiming {
  Duration connectDelay = std::chrono::seconds(1);  ///< from its turn to the report "connecting"
  Duration sendDelay = std::chrono::seconds(2);     ///< from there to "sending"
  Duration deliverDelay = std::chrono::seconds(1);  ///< from there to "delivered"
  Duration giveUpDelay = std::chrono::seconds(30);  ///< without reception: to "error"
};

/// The satellite side of a communicator: transmits parcels one at a time, in the order in which
/// they came, and reports how each fares. Owned by the firmware; lives on the radio's queue.
class TANDRELL_API SatelliteModem {
 public:
  using Report = std::function<void(const Parcel&, ParcelStatus::Type)>;
  using After = std::function<WorkItemPtr(Duration, Work)>;

  /// `after` runs a block on the radio's queue as long as the modem lives; `report` is called from
  /// such blocks.
  SatelliteModem(const SatelliteTiming& timing, After after, Report report)
      : timing_(timing), after_(std::move(after)), report_(std::move(report)) {}

  /// Queues a parcel, whose connecting takes `slowness` longer than usual.
  void transmit(Parcel parcel, Duration slowness);
  /// A transmission under way begins anew, at its first report.
  void setReception(Reception reception);
  /// Stops transmitting, until `resume()` begins the transmission in hand anew.
  void pause();
  void resume();
  /// Forgets every parcel that has not been transmitted.
  void forget();

 private:
  struct Transmission {
    Parcel parcel;
    Duration slowness;
  };

  void stop();
  void begin();
  void finish(ParcelStatus::Type status);
  void then(Duration delay, void (SatelliteModem::*step)());
  void didConnect();
  void didSend();
  void didDeliver() { finish(ParcelStatus::delivered); }
  void didGiveUp() { finish(ParcelStatus::error); }

  const SatelliteTiming timing_;
  const After after_;
  const Report report_;
  std::deque<Transmission> waiting_;  // the first one is in hand
  WorkItemPtr nextStep_;              // absent while nothing is being transmitted
  Reception reception_ = Reception::available;
  bool paused_ = false;
};

}  // namespace tandrell
