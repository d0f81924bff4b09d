#include <TandrellCore/Proto/Wire.h>
#include <TandrellCore/Server/Response.h>

namespace tandrell {

std::optional<::ErrorResponse> parseErrorResponse(const std::optional<Data>& rawData) {
  ::ErrorResponse response;
  if (!rawData || rawData->empty() || !parseWire(*rawData, response)) return std::nullopt;
  return response;
}

}  // namespace tandrell
