#include <gtest/gtest.h>

#include "chanlink/server/DeviceEvent.h"

TEST(DeviceEvent, DescribesOneEventOnOneLineOfPlainText) {
    EXPECT_EQ(DeviceEvent(DeviceEvent::Opened, 3, "127.0.0.1:4000").describe(),
              "connection 3: opened from 127.0.0.1:4000");
    EXPECT_EQ(DeviceEvent(DeviceEvent::LoggedIn, 3, "a d\nmin~\x7F\\").describe(),
              "connection 3: logged in as a d\\x0Amin~\\x7F\\x5C");
    EXPECT_EQ(DeviceEvent(DeviceEvent::Closed, 1, "").describe(), "connection 1: closed");
    EXPECT_STREQ(DeviceEvent::name(static_cast<DeviceEvent::Kind>(9)), "unknown");
}
