#include <TandrellCore/Server/Response.h>

namespace tandrell {

std::optional<::ErrorResponse> parseErrorResponse(const std::optional<Data>& rawData) {
  ::ErrorResponse response;
  if (!rawData || rawData->empty() ||
      !response.ParseFromArray(rawData->data(), static_cast<int>(rawData->size()))) {
    return std::nullopt;
  }
  return response;
}

}  // namespace tandrell
