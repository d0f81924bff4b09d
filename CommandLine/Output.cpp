#include <CommandLine/Output.h>
#include <CommandLine/Printable.h>

#include <fmt/format.h>

namespace tandrell {
namespace {

/// As much is kept of the pieces of a stream.
constexpr std::size_t mostKept = 65536;

std::string dump(const Output::Fields& object) {
  // What arrives from outside need not be text: such bytes are replaced, the line stays readable.
  return object.dump(-1, ' ', false, Output::Fields::error_handler_t::replace);
}

std::string textOf(const std::vector<std::string>& lines) {
  std::string text;
  for (const auto& line : lines) text += printable(line) + "\n";
  return text;
}

}  // namespace

Output::Output(Machine& machine, bool json)
    : machine_(machine),
      json_(json),
      terminal_(!json && machine.isTerminal()),
      start_(machine.environment().dispatcher->now()) {}

void Output::event(const Moment& at, std::string_view type, const Fields& fields,
                   std::string_view text) {
  clearProgress();
  print(at, type, fields, lineFor(at, text) + "\n");
}

void Output::block(const Moment& at, std::string_view type, const Fields& fields,
                   const std::vector<std::string>& lines) {
  clearProgress();
  print(at, type, fields, textOf(lines));
}

Output::Piece Output::piece(const Moment& at, std::string_view type, const Fields& fields,
                            const std::vector<std::string>& lines) const {
  if (!json_) return {"@", textOf(lines)};
  const Fields time = at.date.timeIntervalSince1970();
  return {fmt::format(R"({{"type":"{}","ts":{},"offset":)", type, time.dump()),
          fmt::format(",{}\n", dump(fields).substr(1))};
}

void Output::tell(const Piece& piece, std::size_t offset) {
  const fmt::format_int digits(offset);
  kept_ += piece.begin;
  kept_.append(digits.data(), digits.size());
  kept_ += piece.end;
  if (kept_.size() > mostKept) flush();
}

void Output::flush() {
  if (!kept_.empty()) machine_.writeOut(kept_);
  kept_.clear();
}

void Output::progress(const Moment& at, std::string_view type, const Fields& fields,
                      std::string_view text) {
  if (!terminal_) return event(at, type, fields, text);
  clearProgress();
  print(at, type, fields, lineFor(at, text));
  progressShown_ = true;
}

void Output::done(const Moment& at, int status, std::string_view outcome, std::string_view text) {
  clearProgress();
  const auto line = lineFor(at, text);
  const auto colour = status == 0 ? "32" : "31";
  print(at, "done", {{"status", status}, {"outcome", outcome}},
        terminal_ ? fmt::format("\x1b[{}m{}\x1b[0m\n", colour, line) : line + "\n");
  done_ = true;
}

void Output::refused(const Moment& at, int status, std::string_view outcome) {
  if (json_) done(at, status, outcome, {});
}

void Output::error(std::string_view text) {
  clearProgress();
  flush();
  machine_.writeError(fmt::format("tandrell: {}\n", printable(text)));
}

std::string Output::readable(const Fields& value) {
  if (value.is_null()) return "none";
  if (value.is_string()) return value.get<std::string>();
  if (!value.is_object()) return value.dump();
  std::string text;
  for (const auto& [key, member] : value.items()) {
    text += fmt::format("{}{}={}", text.empty() ? "" : ", ", key, readable(member));
  }
  return text;
}

void Output::print(const Moment& at, std::string_view type, const Fields& fields,
                   std::string text) {
  if (done_) return;
  flush();
  if (!json_) return machine_.writeOut(text);
  Fields object = {{"type", type}, {"ts", at.date.timeIntervalSince1970()}};
  object.update(fields);
  machine_.writeOut(dump(object) + "\n");
}

std::string Output::lineFor(const Moment& at, std::string_view text) const {
  return printable(fmt::format("{:8.3f} s  {}", toSeconds(at.time - start_), text));
}

void Output::clearProgress() {
  if (!progressShown_) return;
  progressShown_ = false;
  machine_.writeOut("\r\x1b[K");
}

}  // namespace tandrell
