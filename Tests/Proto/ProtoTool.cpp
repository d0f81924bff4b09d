#include <Tests/Proto/AnyMessage.h>

#include <google/protobuf/util/json_util.h>

#include <iostream>
#include <sstream>
#include <string>

// The library's runtime as a filter, for cross_check.py. Each line of input is a message's name, a
// form ("wire" or "json") and the message in that form. The answer to a line is "ok", the wire
// bytes in hexadecimal ("-" for none) and the JSON text, or "error" and what went wrong.
namespace tandrell::test {
namespace {

namespace util = google::protobuf::util;

bool parse(const std::string& form, const std::string& text, google::protobuf::Message& message) {
  if (form == "json") return util::JsonStringToMessage(text, &message).ok();
  return form == "wire" && message.ParseFromString(std::string(textOf(fromHex(text))));
}

std::string answer(const std::string& line) {
  std::istringstream input(line);
  std::string name;
  std::string form;
  std::string text;
  input >> name >> form >> std::ws;
  std::getline(input, text);
  const auto message = makeMessage(name);
  if (!message) return "error no message " + name;
  if (!parse(form, text, *message)) return "error not a " + name;
  std::string json;
  if (!util::MessageToJsonString(*message, &json).ok()) return "error no JSON for " + name;
  const auto wire = toHex(viewOf(message->SerializeAsString()));
  return "ok " + (wire.empty() ? "-" : wire) + " " + json;
}

}  // namespace
}  // namespace tandrell::test

int main() {
  for (std::string line; std::getline(std::cin, line);) {
    std::cout << tandrell::test::answer(line) << '\n';
  }
}
