#include "operation_request.h"
#include "operator_history.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace tamo::shell {
namespace {

TEST(OperationRequest, ReadsTheNameAndParametersLikeThePlatformReader) {
    auto request = operationRequestFromJson(R"({"name":"state"})");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->name, "state");
    request = operationRequestFromJson(R"({"name":"state","operation":"advance"})");
    EXPECT_EQ(request->name, "advance");
    EXPECT_FALSE(operationRequestFromJson(R"({"operation":""})"));
    EXPECT_FALSE(operationRequestFromJson(R"({"singer":"x"})"));

    request = operationRequestFromJson(
        R"({"operation":"enqueue","singer":"Ana","songId":7,"n":null,"b":true,"f":1.5,"big":2147483648,)"
        R"("neg":-2147483648,"whole":3.0,"obj":{"a":1},"arr":[1],"name":"skipped"})");
    ASSERT_TRUE(request);
    const core::OperationParameters expected = {{"singer", "Ana"}, {"songId", "7"},          {"n", ""},
                                                {"b", "true"},    {"f", "1.500000"},        {"big", "2147483648.000000"},
                                                {"neg", "-2147483648"}, {"whole", "3"}};
    EXPECT_EQ(request->parameters, expected);

    // A parameters object wins over the top level; its own reserved keys are skipped.
    request = operationRequestFromJson(
        R"({"operation":"enqueue","songId":1,"parameters":{"songId":2,"operation":"x","parameters":"y"}})");
    EXPECT_EQ(request->parameters, (core::OperationParameters{{"songId", "2"}}));
    // A parameters value that is no object leaves the top level in charge.
    request = operationRequestFromJson(R"({"operation":"enqueue","songId":1,"parameters":[1]})");
    EXPECT_EQ(request->parameters, (core::OperationParameters{{"songId", "1"}}));

    for (const char* bad : {"", "not json", "[]", "\"state\"", "{\"operation\":5}", "{\"operation\":\"a\"",
                            "{\"operation\":\"\xff\"}"}) {
        EXPECT_ANY_THROW(operationRequestFromJson(bad)) << bad;
    }
}

TEST(OperationRequest, RunsBodiesAndMarksChanges) {
    core::EventCore core;
    core::OperatorHistory history;
    OperationReply reply = runOperationBody(core, &history, R"({"operation":"state"})");
    EXPECT_EQ(reply.httpStatus, 200);
    EXPECT_FALSE(reply.eventChanged);
    reply = runOperationBody(core, &history, "{}");
    EXPECT_EQ(reply.httpStatus, 400);
    EXPECT_EQ(reply.body, R"({"status":"error","message":"Missing operation"})");
    // The reader can never pass a parameter called "name".
    reply = runOperationBody(core, &history, R"({"operation":"add_singer","name":"Ana"})");
    EXPECT_EQ(reply.body, R"({"status":"error","message":"Missing parameter: name"})");
    reply = runOperationBody(core, &history, R"({"operation":"stop"})");
    EXPECT_TRUE(reply.eventChanged);
}

}  // namespace
}  // namespace tamo::shell
