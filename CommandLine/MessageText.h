#pragma once

#include <CommandLine/Output.h>

#include <google/protobuf/message.h>

#include <string>
#include <vector>

namespace tandrell {

/// A message laid out: its fields under their own names, those at their default included; message
/// fields where they are present. Cases of enumerations have their short names, others read
/// "unrecognized(9)". Bytes are hexadecimal; what a package carries is laid out as its type says.
/// Fields that the message does not have stand under "unknownFields", by number.
struct LaidOutMessage {
  Output::Fields fields;
  std::string
      problem;  ///< a package whose bytes are not what its type says; empty where all is well
};
LaidOutMessage layOut(const google::protobuf::Message& message);

/// The same for people, a line for each field, indented by its depth.
std::vector<std::string> linesOf(const Output::Fields& fields, std::size_t depth = 1);

}  // namespace tandrell
