#pragma once

#include <TandrellCore/Platform/Error.h>
#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Utility/CommonError.h>

#include <string>
#include <string_view>

namespace tandrell {

/// What a reply of the server came to.
enum class ResponseStatus { success, timeout, error };

/// `success` for codes from 200 to 299, `timeout` for 408, `error` for every other number.
TANDRELL_API ResponseStatus responseStatus(int code);

/// The name of the case, for log lines.
TANDRELL_API std::string_view nameOf(ResponseStatus status);

/// Failures of a request as error values, in the domain "ResponseError".
namespace ResponseError {
/// Code 0; the text is the caller's, possibly empty.
TANDRELL_API Error unknown(std::string text);
/// Code 1: the reply was a success but held nothing.
TANDRELL_API Error noData();
/// Code 2.
TANDRELL_API Error timeout();
}  // namespace ResponseError

}  // namespace tandrell
