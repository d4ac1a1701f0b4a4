#include <gtest/gtest.h>

#include <system_error>
#include <utility>

#include "simulator/guard/ControlChannel.h"

namespace orvane {
namespace {

TEST(ControlChannelTest, MessagesArriveWholeAndInOrder) {
  const auto [one, other] = ControlChannel::MakePair();
  one.Send("first");
  one.Send(std::string("a\0b", 3));
  EXPECT_EQ(other.Receive(), "first");
  EXPECT_EQ(other.Receive(), std::string("a\0b", 3));
}

TEST(ControlChannelTest, NothingIsReceivedWhenTheOtherEndIsClosed) {
  auto ends = ControlChannel::MakePair();
  { const ControlChannel closed(std::move(ends.first)); }
  EXPECT_EQ(ends.second.Receive(), std::nullopt);
}

TEST(ControlChannelTest, SendingFailsWhenTheOtherEndIsClosed) {
  auto ends = ControlChannel::MakePair();
  { const ControlChannel closed(std::move(ends.first)); }
  EXPECT_THROW(ends.second.Send("lost"), std::system_error);
}

}  // namespace
}  // namespace orvane
