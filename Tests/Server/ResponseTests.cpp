#include <TandrellCore/Server/Response.h>

#include <gtest/gtest.h>

namespace tandrell::test {
namespace {

using Reply = Response<::UserResponse>;

::UserResponse user() {
  ::UserResponse user;
  user.set_id("u-1");
  return user;
}

Data errorBody() {
  ::ErrorResponse body;
  body.set_status(404);
  body.set_path("/users");
  return *safeData(body);
}

Reply reply(int code, std::optional<::UserResponse> data = {}, std::optional<Error> error = {},
            std::optional<Data> rawData = {}) {
  return {std::move(data), responseStatus(code), code, std::move(error), rawData};
}

TEST(ResponseStatus, IsReadOffTheCode) {
  for (const auto& [code, name] : {std::pair(200, "success"),
                                   {299, "success"},
                                   {199, "error"},
                                   {300, "error"},
                                   {408, "timeout"},
                                   {504, "error"},
                                   {0, "error"},
                                   {-1, "error"}}) {
    EXPECT_EQ(nameOf(responseStatus(code)), name) << code;
  }
  for (const auto& [code, client] :
       {std::pair(399, false), {400, true}, {408, true}, {499, true}, {500, false}}) {
    EXPECT_EQ(reply(code).isClientError(), client) << code;
  }
}

TEST(Response, IsASuccessOnlyWithDataAndWhateverItsError) {
  EXPECT_EQ(reply(200, user()).toResult().value().id(), "u-1");
  EXPECT_EQ(reply(204).toResult().error(), ResponseError::noData());
  EXPECT_EQ(reply(204, {}, CommonError::illegalState).toResult().error(), ResponseError::noData());
  EXPECT_EQ(reply(200, user()).error, std::nullopt);
}

TEST(Response, FailsWithItsOwnErrorFirst) {
  EXPECT_EQ(reply(408, user()).toResult().error(), ResponseError::timeout());
  EXPECT_EQ(*reply(408).error, ResponseError::timeout());
  const Error own = CommonError::illegalArgument;
  EXPECT_EQ(reply(408, {}, own).toResult().error(), own);
  EXPECT_EQ(reply(503, {}, own).toResult().error(), own);
  const auto unknown = reply(503).toResult().error();
  EXPECT_EQ(unknown, ResponseError::unknown(""));
  EXPECT_EQ(unknown.text, "");
  const auto bare = Reply::ofParts(user(), ResponseStatus::error, 503, {});
  EXPECT_EQ(bare.error, std::nullopt);
  EXPECT_EQ(bare.toResult().error().text, "Unknown error occurred. status code: 503");
}

TEST(Response, ReadsTheServersErrorBodyOnlyWhereThereIsNoPayload) {
  EXPECT_EQ(reply(404, {}, {}, errorBody()).errorResponse->path(), "/users");
  EXPECT_FALSE(reply(404, user(), {}, errorBody()).errorResponse);
  EXPECT_FALSE(reply(404, {}, {}, Data{}).errorResponse);
  EXPECT_FALSE(reply(404, {}, {}, Data{0xFF, 0x01}).errorResponse);
  EXPECT_EQ(reply(404).description(), "status=error; error=ResponseError 0; response=nil");
}

}  // namespace
}  // namespace tandrell::test
