#pragma once

#include <TandrellCore/Platform/Data.h>
#include <TandrellCore/Platform/Date.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tandrell {

/// The words of one line of a scenario, read one after another. The first problem sticks: it says
/// which word is wrong and what was expected; every later reading then returns a value without a
/// meaning, so that a statement is read straight through and the problem asked for at the end.
///
/// Words are separated by blanks and tabs. A text stands in double quotes, with \" \\ and \n for
/// the three characters that it cannot hold otherwise. '#' at the beginning of a word starts a
/// comment.
class ScenarioWords {
 public:
  /// What a keyword may be, and what each stands for.
  template <class T>
  using Choices = std::vector<std::pair<std::string_view, T>>;

  /// Cuts the line, which must outlive the words.
  explicit ScenarioWords(std::string_view line);

  /// The first problem; absent as long as everything makes sense.
  const std::optional<std::string>& problem() const { return problem_; }
  /// Makes this the problem, unless there is one.
  void fail(std::string problem);

  /// Whether every word has been read.
  bool atEnd() const { return next_ == words_.size(); }
  /// Everything that is still to be read, as it was written.
  std::string rest() const;

  /// The next word, which is none in quotes. Each of these reads the next word; `what` names for
  /// people what is expected there.
  std::string word(std::string_view what);
  /// A name that consists of letters, digits, '-' and '_'.
  std::string label();
  /// A text in quotes.
  std::string text(std::string_view what);
  std::uint32_t number(std::string_view what, std::uint32_t least, std::uint32_t most);
  std::int32_t signedNumber(std::string_view what, std::int32_t least, std::int32_t most);
  double degrees(std::string_view what, double most);
  /// A moment of the scenario: S, M:SS or H:MM:SS; the seconds may have a fraction.
  Duration time();
  /// A number with its unit: 300ms, 20s, 5min, 2h.
  Duration duration();
  /// A duration of at least a second, without a fraction.
  std::chrono::seconds wholeSeconds();
  /// Bytes, two hexadecimal digits each, in as many words as there are; at least one byte.
  Data bytes();

  /// Takes the next word if it is this one.
  bool accept(std::string_view keyword);
  void expect(std::string_view keyword);
  /// There must be no further word.
  void expectEnd();

  /// What the next word stands for; a value of its own making where it is none of the choices.
  template <class T>
  T choice(const Choices<T>& choices) {
    std::vector<std::string_view> names;
    for (const auto& each : choices) names.push_back(each.first);
    const auto index = indexIn(names);
    return index ? choices[*index].second : T();
  }

 private:
  struct Word {
    std::string text;
    bool quoted;
    std::size_t begin;  // in the line
  };

  void cut();
  std::size_t cutText(std::size_t begin);
  std::size_t cutBare(std::size_t begin);
  void expected(std::string_view what);
  std::optional<std::string> take(std::string_view what);
  std::optional<std::size_t> indexIn(const std::vector<std::string_view>& names);

  const std::string_view line_;
  std::vector<Word> words_;
  std::size_t end_ = 0;  // of the last word, in the line
  std::size_t next_ = 0;
  std::optional<std::string> problem_;
};

}  // namespace tandrell
