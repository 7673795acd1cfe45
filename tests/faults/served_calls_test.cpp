// Calls of other processes while the server's memory runs out, at each of its allocations in turn: the client is told,
// or has what it asked for; the server lives, and serves the next one.
#include <gtest/gtest.h>

#include "channel/server_thread.h"
#include "faults.h"
#include "marshal/payloads.h"
#include "marshal/served_recorders.h"
#include "support/support.h"

namespace {

using channel::Connection;
using payloads::Method;
using payloads::Payload;

class ServedCallsTest : public testing::Test {
 protected:
  std::unique_ptr<Connection> Open(const Method& method, HRESULT* created) const {
    std::unique_ptr<Connection> connection;
    channel::Decoder answer;
    const auto outcome =
        Connection::Open(socket_, channel::FrameType::create, &method.iid, sizeof method.iid, 30, &connection, &answer);
    *created = outcome == Connection::Outcome::ok ? static_cast<HRESULT>(answer.U32()) : rpc::kCallFailed;
    return connection;
  }

  struct Outcome {
    HRESULT result;
    std::string answer;
    bool operator==(const Outcome&) const = default;
  };

  static Outcome Call(Connection& connection, const Method& method, const std::string& request) {
    connection.BeginCall(method.slot).Bytes(request.data(), request.size());
    channel::Decoder out;
    const HRESULT result = connection.Exchange(&out);
    const std::size_t bytes = out.Left();
    return {result, std::string(reinterpret_cast<const char*>(out.Bytes(bytes)), bytes)};
  }

  // The answer is what it is without an attack, or tells of the lack of memory.
  static void ExpectTold(const Outcome& outcome, const Outcome& undisturbed, const std::string& where) {
    if (outcome == undisturbed) return;
    EXPECT_EQ(outcome.result, E_OUTOFMEMORY) << where;
    EXPECT_EQ(outcome.answer, "") << where;
  }

  support::TempFolder folder_;
  const std::string socket_ = folder_.Path() / "socket";
  served::Recorders recorders_;
  const channel_test::ServerThread server_{socket_, &recorders_};
};

TEST_F(ServedCallsTest, EachAllocationFails) {
  int struck = 0;
  for (const LONG count : {LONG{3}, LONG{65535}}) {
    recorder::Content content = {.count = count};
    recorders_.script.answer = content;
    for (const Method& method : payloads::Methods()) {
      const std::string request = Payload(method.request, content);
      HRESULT created = S_OK;
      const Outcome undisturbed = Call(*Open(method, &created), method, request);
      ASSERT_EQ(undisturbed.result, S_OK) << method.name;
      bool strikes = true;
      for (int place = 1; strikes; ++place) {
        const std::string where = method.name + ", allocation " + std::to_string(place);
        const auto connection = Open(method, &created);
        ASSERT_EQ(created, S_OK) << where;
        faults::StrikeOtherThreads(place);
        const Outcome outcome = Call(*connection, method, request);
        strikes = faults::LeaveOtherThreads();
        ExpectTold(outcome, undisturbed, where);
        EXPECT_TRUE(Call(*connection, method, request) == undisturbed) << where << ": the next call";
        if (strikes) ++struck;
      }
    }
  }
  std::printf("faults: calls of other processes: %zu methods, %d allocations that fail\n", payloads::Methods().size(),
              struck);
  EXPECT_TRUE(support::WaitUntil([&] { return recorders_.script.objects == 0; }));
}

// Who comes while memory is lacking is told so or sent away, and can come again.
TEST_F(ServedCallsTest, OpeningsFail) {
  const Method& method = payloads::Methods().front();
  HRESULT created = S_OK;
  bool strikes = true;
  for (int place = 1; strikes; ++place) {
    faults::StrikeOtherThreads(place);
    Open(method, &created);
    strikes = faults::LeaveOtherThreads();
    EXPECT_TRUE(created == S_OK || created == E_OUTOFMEMORY || created == rpc::kCallFailed) << created;
    Open(method, &created);
    EXPECT_EQ(created, S_OK) << "allocation " << place;
  }
  EXPECT_TRUE(support::WaitUntil([&] { return recorders_.script.objects == 0; }));
}

}  // namespace
