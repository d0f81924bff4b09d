#include <TandrellCore/Server/ResponseError.h>

namespace tandrell {

ResponseStatus responseStatus(int code) {
  if (code >= 200 && code <= 299) return ResponseStatus::success;
  return code == 408 ? ResponseStatus::timeout : ResponseStatus::error;
}

std::string_view nameOf(ResponseStatus status) {
  switch (status) {
    case ResponseStatus::success:
      return "success";
    case ResponseStatus::timeout:
      return "timeout";
    case ResponseStatus::error:
      return "error";
  }
  return "error";
}

namespace ResponseError {

Error unknown(std::string text) { return {"ResponseError", 0, std::move(text)}; }
Error noData() { return {"ResponseError", 1, "noData"}; }
Error timeout() { return {"ResponseError", 2, "timeout"}; }

}  // namespace ResponseError
}  // namespace tandrell
