#include <CommandLine/AirScenarioRun.h>
#include <CommandLine/ScenarioPayloads.h>
#include <CommandLine/ScenarioRun.h>
#include <CommandLine/SimCommand.h>
#include <Simulator/ScenarioParser.h>
#include <Simulator/SeededRandom.h>
#include <Simulator/VirtualTime.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tandrell {
namespace {

/// How much virtual time passes before an interruption is looked for.
constexpr std::chrono::minutes slice{1};

/// A recipient is good or bad on this phone, not in the language.
void checkRecipients(ParsedScenario& parsed, const Environment& environment) {
  for (const auto& statement : parsed.scenario.statements) {
    const auto* send = std::get_if<PhoneSend>(&statement.action);
    if (!send) continue;
    const auto payload = makeScenarioPayload(send->content, environment, 0);
    if (!payload.isSuccess()) parsed.errors.push_back({statement.line, payload.error().text});
  }
  std::ranges::sort(parsed.errors, {}, &ScenarioError::line);
}

/// Ends at once, for there was nothing to do but to look at the file.
class ToldRun final : public Run {
 public:
  ToldRun(Context context, ExitStatus status, std::string outcome)
      : context_(std::move(context)), status_(status), outcome_(std::move(outcome)) {}

  void start() override {
    const auto at = Moment::now(context_.environment);
    if (status_ == ExitStatus::done) {
      context_.output.done(at, static_cast<int>(status_), outcome_, "the scenario makes sense");
    } else {
      context_.output.refused(at, static_cast<int>(status_), outcome_);
    }
    context_.finished(status_);
  }
  void interrupt() override {}

 private:
  const Context context_;
  const ExitStatus status_;
  const std::string outcome_;
};

/// A scenario in a time of its own, which passes in slices on the machine's main queue.
class VirtualRun final : public Run, public std::enable_shared_from_this<VirtualRun> {
 public:
  VirtualRun(Context context, std::string file, Scenario scenario,
             std::optional<std::uint32_t> seed)
      : context_(std::move(context)), time_(VirtualTime::make({.seed = seed})) {
    auto environment = context_.environment;
    environment.dispatcher = time_;
    environment.wallClock = time_;
    environment.random = std::make_shared<SeededRandom>(seed.value_or(1));
    run_ = std::make_shared<ScenarioRun>(
        ScenarioRun::Parts{environment, context_.output, std::move(file), std::move(scenario),
                           [this](ExitStatus status) { status_ = status; }});
  }

  /// What is still queued holds the clock, and that what is queued.
  ~VirtualRun() override {
    run_.reset();
    time_->runDue();
  }

  void start() override {
    run_->start();
    pass();
  }
  void interrupt() override { run_->interrupt(); }

 private:
  void pass() {
    time_->runUntil([this] { return status_.has_value(); }, slice);
    if (status_) return context_.finished(*status_);
    context_.environment.mainQueue()->async([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->pass();
    });
  }

  const Context context_;
  const std::shared_ptr<VirtualTime> time_;
  std::shared_ptr<ScenarioRun> run_;
  std::optional<ExitStatus> status_;
};

}  // namespace

void SimCommand::declare(CLI::App& app) {
  app.add_option("file", file_, "The scenario; - reads it from the standard input")
      ->type_name("FILE")
      ->required();
  app.add_flag("--check", checkOnly_, "Look for errors in the file and do not run it");
  auto* isVirtual = app.add_flag("--virtual", virtual_, "Let time jump instead of passing");
  app.add_option("--seed", seed_, "Draw random numbers and the order of events from this number")
      ->type_name("N")
      ->needs(isVirtual);
}

std::shared_ptr<Run> SimCommand::makeRun(Context context) {
  const auto refuse = [&](const std::string& lines) {
    context.machine.writeError(lines);
    return std::make_shared<ToldRun>(std::move(context), ExitStatus::usage, "usage");
  };
  const auto text = context.machine.readFile(file_);
  if (!text.isSuccess()) return refuse(fmt::format("tandrell: {}\n", text.error().text));

  const auto file = file_ == "-" ? "standard input" : file_;
  auto parsed = parseScenario(text.value());
  checkRecipients(parsed, context.environment);
  std::string errors;
  for (const auto& error : parsed.errors) {
    errors += fmt::format("{}:{}: {}\n", file, error.line, error.text);
  }
  if (!errors.empty()) return refuse(errors);
  if (checkOnly_) return std::make_shared<ToldRun>(std::move(context), ExitStatus::done, "checked");
  if (context.link->peripheralManagers()) {
    if (virtual_) return refuse("tandrell: --virtual: a real radio keeps real time\n");
    return std::make_shared<AirScenarioRun>(std::move(context), file, std::move(parsed.scenario));
  }
  if (virtual_) {
    return std::make_shared<VirtualRun>(std::move(context), file, std::move(parsed.scenario),
                                        seed_);
  }
  return std::make_shared<ScenarioRun>(ScenarioRun::Parts{
      context.environment, context.output, file, std::move(parsed.scenario), context.finished});
}

}  // namespace tandrell
