#include <Simulator/ScenarioWords.h>

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace tandrell {
namespace {

/// No scenario is longer, and no duration in it.
constexpr std::chrono::hours longestTime{7 * 24};

bool isBlank(char c) { return c == ' ' || c == '\t'; }

bool isLabelCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

/// Reads all of the text as a number; no blanks, no sign but '-'.
template <class Number>
std::optional<Number> numberIn(std::string_view text) {
  Number number{};
  const auto* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return number;
}

/// Digits with at most one point: no sign, no exponent, neither infinite nor a nameless number.
std::optional<double> plainDecimalIn(std::string_view text) {
  const bool plain = !text.empty() && text.front() != '.' &&
                     text.find_first_not_of("0123456789.") == std::string_view::npos;
  return plain ? numberIn<double>(text) : std::nullopt;
}

std::optional<Duration> durationFrom(std::optional<double> seconds) {
  if (!seconds || !(*seconds <= toSeconds(longestTime))) return std::nullopt;
  return Duration(std::llround(*seconds * 1e9));
}

/// "1:02:03.5" in seconds; what follows a colon has two digits before the point and is below 60.
std::optional<double> clockTimeIn(std::string_view text) {
  double seconds = 0;
  for (int parts = 1;; ++parts) {
    const auto colon = text.find(':');
    const bool last = colon == std::string_view::npos;
    const auto part = text.substr(0, colon);
    const auto value = plainDecimalIn(part);
    if (!value || parts > 3) return std::nullopt;
    if (!last && part.find('.') != std::string_view::npos) return std::nullopt;
    if (parts > 1 && (std::min(part.find('.'), part.size()) != 2 || *value >= 60)) {
      return std::nullopt;
    }
    seconds = seconds * 60 + *value;
    if (last) return seconds;
    text.remove_prefix(colon + 1);
  }
}

std::optional<double> secondsPerUnit(std::string_view unit) {
  if (unit == "ms") return 1e-3;
  if (unit == "s") return 1;
  if (unit == "min") return 60;
  if (unit == "h") return 3600;
  return std::nullopt;
}

std::optional<double> measuredTimeIn(std::string_view text) {
  const auto number = text.substr(0, text.find_first_not_of("0123456789."));
  const auto unit = secondsPerUnit(text.substr(number.size()));
  const auto value = plainDecimalIn(number);
  return unit && value ? std::optional(*value * *unit) : std::nullopt;
}

std::optional<Data> bytesIn(std::string_view text) {
  if (text.empty() || text.size() % 2 != 0) return std::nullopt;
  Data bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    std::uint8_t byte = 0;
    const auto* end = text.data() + i + 2;
    if (std::from_chars(text.data() + i, end, byte, 16).ptr != end) return std::nullopt;
    bytes.push_back(byte);
  }
  return bytes;
}

}  // namespace

ScenarioWords::ScenarioWords(std::string_view line) : line_(line) { cut(); }

void ScenarioWords::cut() {
  std::size_t at = 0;
  while (!problem_) {
    while (at < line_.size() && isBlank(line_[at])) ++at;
    if (at == line_.size() || line_[at] == '#') return;
    at = line_[at] == '"' ? cutText(at) : cutBare(at);
    end_ = at;
  }
}

std::size_t ScenarioWords::cutBare(std::size_t begin) {
  std::size_t end = begin;
  while (end < line_.size() && !isBlank(line_[end]) && line_[end] != '"') ++end;
  words_.push_back({std::string(line_.substr(begin, end - begin)), false, begin});
  if (end < line_.size() && line_[end] == '"') {
    fail(fmt::format("a blank is missing between \"{}\" and the quote", words_.back().text));
  }
  return end;
}

std::size_t ScenarioWords::cutText(std::size_t begin) {
  std::string text;
  for (std::size_t at = begin + 1; at < line_.size(); ++at) {
    const char c = line_[at];
    if (c == '"') {
      words_.push_back({std::move(text), true, begin});
      return at + 1;
    }
    if (c != '\\') {
      text += c;
      continue;
    }
    const char escaped = ++at < line_.size() ? line_[at] : ' ';
    if (escaped != '"' && escaped != '\\' && escaped != 'n') {
      fail("expected \\\", \\\\ or \\n in a text: a backslash alone means nothing");
      return line_.size();
    }
    text += escaped == 'n' ? '\n' : escaped;
  }
  fail(fmt::format("the text that begins with \"{}\" has no closing quote",
                   text.substr(0, text.find(' '))));
  return line_.size();
}

void ScenarioWords::fail(std::string problem) {
  if (!problem_) problem_ = std::move(problem);
}

void ScenarioWords::expected(std::string_view what) {
  const auto found =
      atEnd() ? std::string("but the line ends") : fmt::format("not \"{}\"", words_[next_].text);
  fail(fmt::format("expected {}, {}", std::string(what), found));
}

std::optional<std::string> ScenarioWords::take(std::string_view what) {
  if (problem_) return std::nullopt;
  if (!atEnd() && !words_[next_].quoted) return words_[next_++].text;
  expected(what);
  return std::nullopt;
}

std::string ScenarioWords::rest() const {
  if (atEnd()) return {};
  const auto begin = words_[next_].begin;
  return std::string(line_.substr(begin, end_ - begin));
}

std::string ScenarioWords::word(std::string_view what) { return take(what).value_or(""); }

std::string ScenarioWords::label() {
  constexpr std::string_view what = "a label of letters, digits, '-' and '_'";
  const auto label = word(what);
  if (problem_ || std::all_of(label.begin(), label.end(), isLabelCharacter)) return label;
  --next_;
  expected(what);
  return {};
}

std::string ScenarioWords::text(std::string_view what) {
  if (!problem_ && !atEnd() && words_[next_].quoted) return words_[next_++].text;
  expected(what);
  return {};
}

std::uint32_t ScenarioWords::number(std::string_view what, std::uint32_t least,
                                    std::uint32_t most) {
  const auto range = fmt::format("{} from {} to {}", std::string(what), least, most);
  const auto text = take(range);
  const auto number = text ? numberIn<std::uint32_t>(*text) : std::nullopt;
  if (number && *number >= least && *number <= most) return *number;
  if (text) --next_, expected(range);
  return least;
}

std::int32_t ScenarioWords::signedNumber(std::string_view what, std::int32_t least,
                                         std::int32_t most) {
  const auto range = fmt::format("{} from {} to {}", std::string(what), least, most);
  const auto text = take(range);
  const auto number = text ? numberIn<std::int32_t>(*text) : std::nullopt;
  if (number && *number >= least && *number <= most) return *number;
  if (text) --next_, expected(range);
  return least;
}

double ScenarioWords::degrees(std::string_view what, double most) {
  const auto range = fmt::format("{} from -{} to {} degrees", std::string(what), most, most);
  const auto text = take(range);
  const bool negative = text && text->starts_with('-');
  const auto size = text ? plainDecimalIn(std::string_view(*text).substr(negative)) : std::nullopt;
  if (size && *size <= most) return negative ? -*size : *size;
  if (text) --next_, expected(range);
  return 0;
}

Duration ScenarioWords::time() {
  constexpr std::string_view what = "a time (S, M:SS or H:MM:SS, up to a week)";
  const auto text = take(what);
  const auto time = text ? durationFrom(clockTimeIn(*text)) : std::nullopt;
  if (text && !time) --next_, expected(what);
  return time.value_or(Duration::zero());
}

Duration ScenarioWords::duration() {
  constexpr std::string_view what = "a duration (300ms, 20s, 5min or 2h, up to a week)";
  const auto text = take(what);
  const auto duration = text ? durationFrom(measuredTimeIn(*text)) : std::nullopt;
  if (text && !duration) --next_, expected(what);
  return duration.value_or(Duration::zero());
}

std::chrono::seconds ScenarioWords::wholeSeconds() {
  const auto duration = this->duration();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
  if (!problem_ && (seconds != duration || seconds.count() < 1)) {
    --next_;
    expected("a duration of whole seconds");
  }
  return seconds;
}

Data ScenarioWords::bytes() {
  constexpr std::string_view what = "bytes, as pairs of hexadecimal digits";
  Data bytes;
  do {
    const auto text = take(what);
    const auto some = text ? bytesIn(*text) : std::nullopt;
    if (text && !some) --next_, expected(what);
    if (some) bytes.insert(bytes.end(), some->begin(), some->end());
  } while (!problem_ && !atEnd());
  return bytes;
}

bool ScenarioWords::accept(std::string_view keyword) {
  const bool found =
      !problem_ && !atEnd() && !words_[next_].quoted && words_[next_].text == keyword;
  if (found) ++next_;
  return found;
}

void ScenarioWords::expect(std::string_view keyword) {
  if (!accept(keyword)) expected(fmt::format("\"{}\"", std::string(keyword)));
}

void ScenarioWords::expectEnd() {
  if (!atEnd()) fail(fmt::format("unexpected \"{}\" behind the statement", words_[next_].text));
}

std::optional<std::size_t> ScenarioWords::indexIn(const std::vector<std::string_view>& names) {
  std::string list;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (accept(names[i])) return i;
    list += i == 0 ? "" : i + 1 == names.size() ? " or " : ", ";
    list += names[i];
  }
  expected(list);
  return std::nullopt;
}

}  // namespace tandrell
