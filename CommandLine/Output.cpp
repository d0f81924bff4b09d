#include <CommandLine/Output.h>

#include <fmt/format.h>

#include <algorithm>

namespace tandrell {
namespace {

/// A message from outside must neither break the line nor command the terminal.
std::string printable(std::string line) {
  std::replace_if(
      line.begin(), line.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, ' ');
  return line;
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
  std::string text;
  for (const auto& line : lines) text += printable(line) + "\n";
  print(at, type, fields, std::move(text));
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
  machine_.writeError(fmt::format("tandrell: {}\n", text));
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
  if (!json_) return machine_.writeOut(text);
  Fields object = {{"type", type}, {"ts", at.date.timeIntervalSince1970()}};
  object.update(fields);
  // What arrives from outside need not be text: such bytes are replaced, the line stays readable.
  machine_.writeOut(object.dump(-1, ' ', false, Fields::error_handler_t::replace) + "\n");
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
