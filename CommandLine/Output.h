#pragma once

#include <CommandLine/Machine.h>

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace tandrell {

/// When something happened, on both clocks.
struct Moment {
  Date date;
  Duration time;  ///< on the dispatcher's timeline

  /// Now; from any thread.
  static Moment now(const Environment& environment) {
    return {environment.wallClock->date(), environment.dispatcher->now()};
  }
};

/// What a command tells: one line per event on the standard output, either for people, with the
/// seconds since the program's start, or as one JSON object,
/// `{"type":...,"ts":<seconds since 1970>,...}`. The last event is `done`; what comes after it is
/// not printed any more. Errors go to the standard error stream. Used on the main thread only.
class Output {
 public:
  using Fields = nlohmann::ordered_json;

  Output(Machine& machine, bool json);

  /// People read the seconds since this moment, which is one of the events' timeline; since the
  /// program's start until it is called.
  void startAt(Duration start) { start_ = start; }

  /// `fields` is an object, `text` the same for people.
  void event(const Moment& at, std::string_view type, const Fields& fields, std::string_view text);

  /// An event with a text of several lines, each printed as it is, without the time.
  void block(const Moment& at, std::string_view type, const Fields& fields,
             const std::vector<std::string>& lines);

  /// As `block`, an event of a stream that can be told at many offsets, each in little time: what
  /// stands in front of the offset, and what behind it.
  struct Piece {
    std::string begin;
    std::string end;
  };
  Piece piece(const Moment& at, std::string_view type, const Fields& fields,
              const std::vector<std::string>& lines) const;
  /// Puts "@" and the offset in front of the first line, or "offset" in front of the fields. May be
  /// kept until `flush()`, or the next event.
  void tell(const Piece& piece, std::size_t offset);
  void flush();

  /// An event of which only the last matters: on a terminal its line is redrawn.
  void progress(const Moment& at, std::string_view type, const Fields& fields,
                std::string_view text);

  /// The last event. On a terminal it is green for the status 0 and red for any other.
  void done(const Moment& at, int status, std::string_view outcome, std::string_view text);

  /// The last event where there was no run: with the reason on the error stream, people need none.
  void refused(const Moment& at, int status, std::string_view outcome);

  /// One line on the standard error stream.
  void error(std::string_view text);

  /// A value as people read it: texts without quotes, "none" for null, "key=value" for objects.
  static std::string readable(const Fields& value);

 private:
  void print(const Moment& at, std::string_view type, const Fields& fields, std::string text);
  std::string lineFor(const Moment& at, std::string_view text) const;
  void clearProgress();

  Machine& machine_;
  const bool json_;
  const bool terminal_;
  Duration start_;
  std::string kept_;  // of pieces
  bool progressShown_ = false;
  bool done_ = false;
};

}  // namespace tandrell
