#include <gtest/gtest.h>

#include <memory>
#include <typeinfo>

#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/wire/ByteVectorReader.h"
#include "support/Bytes.h"

using testing_support::bytes;
using testing_support::Bytes;
using testing_support::hex;

namespace {

const std::string OneValue = "05 00 00 00 03 00 01 00 AA BB CC";

std::vector<ChannelValue> valuesOf(const std::shared_ptr<const Message>& message) {
    return dynamic_cast<const GetResponse&>(*message).getChannelValues();
}

}  // namespace

TEST(GetResponse, AcceptsOnlyCompleteValuesEndingAtTheLastByte) {
    EXPECT_TRUE(GetResponse::validate(bytes("0B 00 00")));
    EXPECT_TRUE(GetResponse::validate(bytes("0B 01 00" + OneValue)));
    EXPECT_FALSE(GetResponse::validate(bytes("0B 01 00" + OneValue + "00")));
    EXPECT_FALSE(GetResponse::validate(bytes("0B 01 00 05 00 00 00 03 00 01 00 AA BB")));
    EXPECT_FALSE(GetResponse::validate(bytes("0B 00")));
    EXPECT_FALSE(GetResponse::validate(bytes("0B FF FF")));
    // The first value is complete, the second is cut short.
    EXPECT_FALSE(GetResponse::validate(bytes("0B 02 00" + OneValue + "06 00 00 00 01 00 00 00")));
    EXPECT_TRUE(valuesOf(GetResponse::read(bytes("0B 00 00"))).empty());
}

TEST(GetResponse, HeaderLongerThanTotalIsAcceptedWithEmptyData) {
    // Value 1: total 1, header 2. Its header takes value 2's first byte too,
    // and the wrapped data length moves the reader back onto that byte.
    const Bytes payload = bytes("0B 02 00  01 00 00 00 01 00 02 00 AA  BB 00 00 00 00 00 00 00");
    const auto message = GetResponse::read(payload);
    ASSERT_TRUE(message);
    const std::vector<ChannelValue> values = valuesOf(message);
    ASSERT_EQ(values.size(), 2u);
    EXPECT_EQ(values[0], ChannelValue(1, bytes("AA BB"), {}));
    EXPECT_EQ(values[1], ChannelValue(0xBB, {}, {}));
}

TEST(GetResponse, BuildsValuesInOrderAndRefusesWhatDoesNotFit) {
    const auto message =
        GetResponse::newInstance({std::make_shared<ChannelValue>(5, bytes("AA"), bytes("BB CC")),
                                  std::make_shared<ChannelValue>(6, 0x01020304u)});
    ASSERT_TRUE(message);
    EXPECT_EQ(typeid(*message), typeid(GetResponse));
    EXPECT_EQ(hex(message->write()),
              "0B 02 00 " + OneValue + " 06 00 00 00 08 00 04 00 00 00 00 00 04 03 02 01");
    EXPECT_EQ(valuesOf(message).at(1), ChannelValue(6, 0x01020304u));

    EXPECT_EQ(GetResponse::newInstance({nullptr}), nullptr);
    EXPECT_TRUE(
        GetResponse::newInstance({std::make_shared<ChannelValue>(1, Bytes(1), Bytes(65534))}));
    EXPECT_EQ(GetResponse::newInstance({std::make_shared<ChannelValue>(1, Bytes(1), Bytes(65535))}),
              nullptr);
    const std::vector<std::shared_ptr<const ChannelValue>> tooMany(
        65536, std::make_shared<ChannelValue>(1, Bytes{}, Bytes{}));
    EXPECT_EQ(GetResponse::newInstance(tooMany), nullptr);
}

TEST(GetResponse, ExtractionSkipsValuesCutShortAndLeavesTheReaderAfterTheLast) {
    // Not validated: two values counted, only one there.
    const GetResponse unchecked(bytes("0B 02 00" + OneValue));
    EXPECT_EQ(unchecked.getChannelValues(),
              (std::vector<ChannelValue>{ChannelValue(5, bytes("AA"), bytes("BB CC"))}));
    const Bytes payload = bytes("0B 01 00" + OneValue + "77");
    ByteVectorReader reader(payload);
    EXPECT_EQ(GetResponse::extractChannelValues(reader).size(), 1u);
    EXPECT_EQ(reader.remainingBytes(), 1);
}

TEST(SetRequest, CarriesChannelIdAndExactlyItsData) {
    const auto message = SetRequest::newInstance(7, bytes("AA"));
    ASSERT_TRUE(message);
    EXPECT_EQ(hex(message->write()), "02 07 00 00 00 01 00 AA");
    const auto& request = dynamic_cast<const SetRequest&>(*message);
    EXPECT_EQ(request.getChannelId(), 7u);
    EXPECT_EQ(request.getData(), bytes("AA"));

    EXPECT_FALSE(SetRequest::validate(bytes("02 07 00 00 00 01 00")));
    EXPECT_FALSE(SetRequest::validate(bytes("02 07 00 00 00 01 00 AA BB")));
    EXPECT_TRUE(SetRequest::validate(bytes("02 07 00 00 00 00 00")));
    EXPECT_TRUE(SetRequest::newInstance(1, Bytes(65535, 1)));
    EXPECT_EQ(SetRequest::newInstance(1, Bytes(65536, 1)), nullptr);
}

TEST(SetResponse, IsExactlyOpCodeAndChannelId) {
    const auto message = SetResponse::read(bytes("0C 07 00 00 00"));
    ASSERT_TRUE(message);
    EXPECT_EQ(dynamic_cast<const SetResponse&>(*message).getChannelId(), 7u);
    EXPECT_EQ(SetResponse::read(bytes("0C 07 00 00")), nullptr);
    EXPECT_EQ(SetResponse::read(bytes("0C 07 00 00 00 00")), nullptr);
    EXPECT_EQ(hex(SetResponse::newInstance(0x01020304u)->write()), "0C 04 03 02 01");
}
