#include <CommandLine/DecodeCommand.h>
#include <CommandLine/FrameReader.h>
#include <CommandLine/HexText.h>
#include <CommandLine/MessageText.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <functional>
#include <memory>
#include <utility>

namespace tandrell {
namespace {

std::string bytesText(std::size_t count) {
  return fmt::format("{} byte{}", count, count == 1 ? "" : "s");
}

/// The next bytes of the stream; none at its end.
using Source = std::function<Result<Data>()>;

/// Tells each piece of the stream as it is read, a part after another so that it can be interrupted
/// in between, and ends.
class DecodeRun final : public Run, public std::enable_shared_from_this<DecodeRun> {
 public:
  DecodeRun(Context context, Source source, StreamDirection direction)
      : context_(std::move(context)),
        source_(std::move(source)),
        reader_(direction, [this](const StreamPiece& piece) { tell(piece); }) {}

  void start() override {
    if (over_) return;
    const auto bytes = source_();
    if (!bytes.isSuccess()) return refuse(bytes.error().text);
    now_ = Moment::now(context_.environment);
    size_ += bytes.value().size();
    bytes.value().empty() ? reader_.end() : reader_.read(bytes.value());
    context_.output.flush();
    if (bytes.value().empty()) return conclude();
    using State = Machine::OutputState;
    if (context_.machine.outputState() == State::readerGone) return interrupt();
    if (context_.machine.outputState() == State::failed) {
      return finish(ExitStatus::failed, "failed", "failed");
    }
    context_.environment.mainQueue()->async([self = shared_from_this()] { self->start(); });
  }
  void interrupt() override { finish(ExitStatus::interrupted, "interrupted", "interrupted"); }

 private:
  void conclude() {
    const auto text = fmt::format("{} frame{}, {} malformed, in {}", frames_,
                                  frames_ == 1 ? "" : "s", malformed_, bytesText(size_));
    malformed_ == 0 ? finish(ExitStatus::done, "decoded", text)
                    : finish(ExitStatus::failed, "malformed", text);
  }

  void finish(ExitStatus status, std::string_view outcome, std::string_view text) {
    if (std::exchange(over_, true)) return;
    context_.output.done(Moment::now(context_.environment), static_cast<int>(status), outcome,
                         text);
    context_.finished(status);
  }

  void refuse(std::string_view problem) {
    over_ = true;
    context_.output.error(problem);
    context_.output.refused(Moment::now(context_.environment), static_cast<int>(ExitStatus::usage),
                            "usage");
    context_.finished(ExitStatus::usage);
  }

  void tell(const StreamPiece& piece) {
    if (!piece.message || piece.message != message_) {
      message_ = piece.message;
      sound_ = true;
      told_ = piece.kind == StreamPiece::Kind::frame ? frame(piece) : other(piece);
    }
    const bool frame = piece.kind == StreamPiece::Kind::frame;
    if (!sound_) ++malformed_;
    if (sound_ && frame) ++frames_;
    context_.output.tell(told_, piece.offset);
  }

  Output::Piece other(const StreamPiece& piece) {
    const bool console = piece.kind == StreamPiece::Kind::console;
    sound_ = console;
    Output::Fields fields = {{"bytes", piece.size}};
    if (!console) fields["problem"] = piece.problem;
    const auto what = console ? "of the device's console, skipped" : "malformed: " + piece.problem;
    return context_.output.piece(now_, console ? "console" : "malformed", fields,
                                 {fmt::format(" {} {}", bytesText(piece.size), what)});
  }

  Output::Piece frame(const StreamPiece& piece) {
    auto laidOut = layOut(*piece.message);
    const auto problem = piece.problem.empty() ? laidOut.problem : piece.problem;
    sound_ = problem.empty();
    Output::Fields fields = {{"bytes", piece.size}, {"command", piece.command}};
    std::vector<std::string> lines = {fmt::format(" {}, {}", piece.command, bytesText(piece.size))};
    if (!sound_) {
      fields["problem"] = problem;
      lines.push_back("  malformed: " + problem);
    }
    const auto inner = linesOf(laidOut.fields);
    lines.insert(lines.end(), inner.begin(), inner.end());
    fields["message"] = std::move(laidOut.fields);
    return context_.output.piece(now_, "frame", fields, lines);
  }

  const Context context_;
  const Source source_;
  FrameReader reader_;
  Moment now_;
  bool over_ = false;
  std::size_t size_ = 0;
  std::size_t frames_ = 0;
  std::size_t malformed_ = 0;
  // Of the piece that was told last.
  std::shared_ptr<const google::protobuf::Message> message_;
  Output::Piece told_;
  bool sound_ = true;
};

StreamDirection directionNamed(const std::string& name) {
  if (name == "device") return StreamDirection::fromDevice;
  return name == "phone" ? StreamDirection::fromPhone : StreamDirection::either;
}

/// The bytes that a text's parts stand for, until one is empty.
Source bytesOfHex(Machine::FileReader text) {
  return [text = std::move(text), reader = HexReader()]() mutable {
    while (true) {
      const auto part = text();
      if (!part.isSuccess()) return Result<Data>::error(part.error());
      if (part.value().empty()) {
        const auto problem = reader.end();
        return problem ? Result<Data>::error(*problem) : Result<Data>::success({});
      }
      auto bytes = reader.read(part.value());
      if (!bytes.isSuccess() || !bytes.value().empty()) return bytes;
    }
  };
}

Source bytesOfFile(const Context& context, const std::string& path, bool binary) {
  const auto file = context.machine.openFile(path);
  if (!file.isSuccess()) {
    return [error = file.error()] { return Result<Data>::error(error); };
  }
  if (!binary) return bytesOfHex(file.value());
  return [reader = file.value()] {
    const auto part = reader();
    return part.isSuccess() ? Result<Data>::success(copyOf(viewOf(part.value())))
                            : Result<Data>::error(part.error());
  };
}

Source bytesOfWords(const std::vector<std::string>& words) {
  return bytesOfHex([text = fmt::format("{}", fmt::join(words, " "))]() mutable {
    return Result<std::string>::success(std::exchange(text, {}));
  });
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
  auto source = words_.empty() ? bytesOfFile(context, file_.empty() ? "-" : file_, binary_)
                               : bytesOfWords(words_);
  return std::make_shared<DecodeRun>(std::move(context), std::move(source), directionNamed(from_));
}

}  // namespace tandrell
