// Calls of other processes while each of the server's allocations fails in turn: the client gets an error or what it
// asked for; the server survives and serves the next call.
#include "channel/server_thread.h"
#include "faults.h"
#include "marshal/payloads.h"
#include "marshal/served_recorders.h"
#include "support/support.h"

namespace {

using channel::Connection;

class ServedCallsTest : public testing::Test {
 protected:
  using Connected = std::unique_ptr<Connection>;
  using Outcome = std::pair<HRESULT, std::string>;

  HRESULT Open(const IID& iid, Connected* connection) const {
    channel::Decoder answer;
    const auto opened =
        Connection::Open(socket_, geteuid(), {channel::FrameType::create, &iid, sizeof iid}, 30, connection, &answer);
    return opened == Connection::Outcome::ok ? static_cast<HRESULT>(answer.U32()) : rpc::kCallFailed;
  }

  static Outcome Call(Connection& connection, std::uint16_t slot, const std::string& request) {
    connection.BeginCall(slot).Bytes(request.data(), request.size());
    channel::Decoder out;
    const HRESULT result = connection.Exchange(&out);
    const std::size_t bytes = out.Left();
    return {result, std::string(reinterpret_cast<const char*>(out.Bytes(bytes)), bytes)};
  }

  support::TempFolder folder_;
  const std::string socket_ = folder_.Path() / "socket";
  served::Recorders recorders_;
  const channel_test::ServerThread server_{socket_, &recorders_};
};

TEST_F(ServedCallsTest, EachAllocationFails) {
  int struck = 0;
  for (const LONG count : {LONG{3}, LONG{65535}}) {
    const recorder::Content content = {.count = count};
    recorders_.script.answer = content;
    for (const payloads::Method& method : payloads::Methods()) {
      const std::string request = payloads::Payload(method.request, content);
      Connected connection;
      ASSERT_EQ(Open(method.iid, &connection), S_OK);
      const Outcome undisturbed = Call(*connection, method.slot, request);
      ASSERT_EQ(undisturbed.first, S_OK) << method.name;
      bool strikes = true;
      for (int place = 1; strikes; ++place) {
        SCOPED_TRACE(method.name + ", allocation " + std::to_string(place));
        faults::StrikeOtherThreads(place);
        const HRESULT opened = Open(method.iid, &connection);
        const Outcome outcome = opened == S_OK ? Call(*connection, method.slot, request) : Outcome(opened, "");
        strikes = faults::LeaveOtherThreads();
        if (strikes) ++struck;
        // A connection that cannot be opened may also be closed without an answer.
        const bool isTold = outcome == Outcome(E_OUTOFMEMORY, "") || opened == rpc::kCallFailed;
        EXPECT_TRUE(outcome == undisturbed || isTold) << outcome.first;
        ASSERT_EQ(opened == S_OK ? opened : Open(method.iid, &connection), S_OK);
        EXPECT_TRUE(Call(*connection, method.slot, request) == undisturbed) << "the next call";
      }
    }
  }
  std::printf("faults: calls of other processes: %zu methods, %d allocations that fail\n", payloads::Methods().size(),
              struck);
  EXPECT_TRUE(support::WaitUntil([&] { return recorders_.script.objects == 0; }));
}

}  // namespace
