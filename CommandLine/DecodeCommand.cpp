#include <CommandLine/DecodeCommand.h>
#include <CommandLine/FrameReader.h>
#include <CommandLine/HexText.h>
#include <CommandLine/MessageText.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <utility>

namespace tandrell {
namespace {

std::string bytesText(std::size_t count) {
  return fmt::format("{} byte{}", count, count == 1 ? "" : "s");
}

/// Tells each piece of the stream, and ends.
class DecodeRun final : public Run {
 public:
  DecodeRun(Context context, Result<Data> stream, StreamDirection direction)
      : context_(std::move(context)), stream_(std::move(stream)), direction_(direction) {}

  void start() override {
    if (!stream_.isSuccess()) return refuse();
    for (const auto& piece : readStream(stream_.value(), direction_)) tell(piece);
    const auto text =
        fmt::format("{} frame{}, {} malformed, in {}", frames_, frames_ == 1 ? "" : "s", malformed_,
                    bytesText(stream_.value().size()));
    const auto status = malformed_ == 0 ? ExitStatus::done : ExitStatus::failed;
    context_.output.done(now(), static_cast<int>(status), malformed_ == 0 ? "decoded" : "malformed",
                         text);
    context_.finished(status);
  }
  void interrupt() override {}

 private:
  Moment now() const { return Moment::now(context_.environment); }

  void refuse() {
    context_.output.error(stream_.error().text);
    context_.output.refused(now(), static_cast<int>(ExitStatus::usage), "usage");
    context_.finished(ExitStatus::usage);
  }

  void tell(const StreamPiece& piece) {
    if (piece.kind == StreamPiece::Kind::frame) return tellFrame(piece);
    const bool console = piece.kind == StreamPiece::Kind::console;
    if (!console) ++malformed_;
    Output::Fields fields = {{"offset", piece.offset}, {"bytes", piece.size}};
    if (!console) fields["problem"] = piece.problem;
    const auto what = console ? "of the device's console, skipped" : "malformed: " + piece.problem;
    context_.output.block(now(), console ? "console" : "malformed", fields,
                          {fmt::format("@{} {} {}", piece.offset, bytesText(piece.size), what)});
  }

  void tellFrame(const StreamPiece& piece) {
    auto laidOut = layOut(*piece.message);
    const auto problem = piece.problem.empty() ? laidOut.problem : piece.problem;
    problem.empty() ? ++frames_ : ++malformed_;
    Output::Fields fields = {
        {"offset", piece.offset}, {"bytes", piece.size}, {"command", piece.command}};
    std::vector<std::string> lines = {
        fmt::format("@{} {}, {}", piece.offset, piece.command, bytesText(piece.size))};
    if (!problem.empty()) {
      fields["problem"] = problem;
      lines.push_back("  malformed: " + problem);
    }
    const auto inner = linesOf(laidOut.fields);
    lines.insert(lines.end(), inner.begin(), inner.end());
    fields["message"] = std::move(laidOut.fields);
    context_.output.block(now(), "frame", fields, lines);
  }

  const Context context_;
  const Result<Data> stream_;
  const StreamDirection direction_;
  std::size_t frames_ = 0;
  std::size_t malformed_ = 0;
};

StreamDirection directionNamed(const std::string& name) {
  if (name == "device") return StreamDirection::fromDevice;
  return name == "phone" ? StreamDirection::fromPhone : StreamDirection::either;
}

Result<Data> bytesOfFile(const Context& context, const std::string& path, bool binary) {
  const auto text = context.machine.readFile(path);
  if (!text.isSuccess()) return Result<Data>::error(text.error());
  return binary ? Result<Data>::success(copyOf(viewOf(text.value()))) : bytesOfHex(text.value());
}

}  // namespace

void DecodeCommand::declare(CLI::App& app) {
  auto* words = app.add_option("bytes", words_, "Hexadecimal, in one or several words");
  words->type_name("HEX");
  app.add_option("--file", file_, "Read a file instead; - is the standard input, the default")
      ->type_name("FILE")
      ->excludes(words);
  app.add_flag("--binary", binary_, "The file holds the bytes themselves")->excludes(words);
  app.add_option("--from", from_, "Who sent them: also say what such a sender may not send")
      ->type_name("device|phone")
      ->check(CLI::IsMember({"device", "phone"}).description(""));
}

std::shared_ptr<Run> DecodeCommand::makeRun(Context context) {
  auto stream = words_.empty() ? bytesOfFile(context, file_.empty() ? "-" : file_, binary_)
                               : bytesOfHex(fmt::format("{}", fmt::join(words_, " ")));
  return std::make_shared<DecodeRun>(std::move(context), std::move(stream), directionNamed(from_));
}

}  // namespace tandrell
