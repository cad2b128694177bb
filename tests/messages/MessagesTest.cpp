// Every message class through its wire bytes: which payloads the production
// chains accept and as which class, what the builders write, and what the
// getters read. Arbitrary payloads are the message_production fuzz target's.
#include <gtest/gtest.h>

#include <map>
#include <typeindex>

#include "chanlink/messages/ErrorResponse.h"
#include "chanlink/messages/GetRequest.h"
#include "chanlink/messages/GetResponse.h"
#include "chanlink/messages/LogPushRequest.h"
#include "chanlink/messages/LoginRequest.h"
#include "chanlink/messages/LoginResponse.h"
#include "chanlink/messages/MessageProductionChain.h"
#include "chanlink/messages/SetRequest.h"
#include "chanlink/messages/SetResponse.h"
#include "chanlink/messages/SubscriptionRequest.h"
#include "chanlink/messages/SubscriptionResponse.h"
#include "chanlink/messages/UnsubscriptionRequest.h"
#include "chanlink/messages/UserAccountRequest.h"
#include "chanlink/wire/ByteVectorReader.h"
#include "chanlink/wire/ByteVectorWriter.h"
#include "support/Bytes.h"

using testing_support::bytes;
using testing_support::Bytes;
using testing_support::hex;

namespace {

const std::string OneValue = " 05 00 00 00 03 00 01 00 AA BB CC";
const std::string Login = "09 09 07 02 03 61 62 78 79 7A";

// The class the client's or the device's chain makes of payload, or "-".
std::string produced(const Bytes& payload) {
    static const std::map<std::type_index, std::string> names = {
        {typeid(GetRequest), "GetRequest"},       {typeid(SetRequest), "SetRequest"},
        {typeid(SubscriptionRequest), "SubReq"},  {typeid(LogPushRequest), "LogPush"},
        {typeid(LoginRequest), "LoginRequest"},   {typeid(GetResponse), "GetResponse"},
        {typeid(SetResponse), "SetResponse"},     {typeid(SubscriptionResponse), "SubResp"},
        {typeid(LoginResponse), "LoginResponse"}, {typeid(ErrorResponse), "Error"}};
    for (const auto& chain : {MessageProductionChain::newClientInstance(),
                              MessageProductionChain::newDeviceInstance()}) {
        if (const auto message = chain->produceMessageFromFrame(payload)) {
            EXPECT_EQ(message->write(), payload) << "round trip";
            return names.at(typeid(*message));
        }
    }
    return "-";
}

struct Accepted {
    std::string payload;
    const char* as;
};

const Accepted acceptance[] = {
    {"00 00 00", "GetRequest"},  // zero ids
    {"00 00", "-"},
    {"00 01 00 05 00 00 00", "GetRequest"},
    {"00 01 00 05 00 00 00 00", "-"},
    {"00 01 00 05 00 00", "-"},
    {"03 01 00 05 00 00 00", "SubReq"},
    {"0D 01 00 05 00 00 00", "SubResp"},
    {"0D 01 00", "-"},
    {"0B 00 00", "GetResponse"},
    {"0B 01 00" + OneValue, "GetResponse"},
    {"0B 01 00" + OneValue + " 00", "-"},
    {"0B 01 00 05 00 00 00 03 00 01 00 AA BB", "-"},
    {"0B 00", "-"},
    {"0B FF FF", "-"},
    {"0B 02 00" + OneValue + " 06 00 00 00 01 00 00 00", "-"},  // second value cut short
    // Total 1, header 2: the header takes the next value's first byte, and the
    // wrapped data length moves the reader back onto it.
    {"0B 02 00 01 00 00 00 01 00 02 00 AA BB 00 00 00 00 00 00 00", "GetResponse"},
    {"02 07 00 00 00 01 00 AA", "SetRequest"},
    {"02 07 00 00 00 01 00", "-"},  // data missing
    {"02 07 00 00 00 01 00 AA BB", "-"},
    {"02 07 00 00 00 00 00", "SetRequest"},  // empty data
    {"0C 07 00 00 00", "SetResponse"},
    {"0C 07 00 00", "-"},
    {"0C 07 00 00 00 00", "-"},
    {Login, "LoginRequest"},
    {"09 09 07 00 00", "LoginRequest"},
    {"09 09 08 02 03 61 62 78 79 7A", "-"},  // byte 2 is not 7
    {Login + " 00", "-"},
    {"09 09 07", "-"},
    {"09 05 07 00 00", "-"},  // not a login sub-message
    {"0F 01", "LoginResponse"},
    {"0F 03", "-"},
    {"0F 01 00", "-"},
    {"04 01", "LogPush"},
    {"04 02", "-"},
    {"04 01 00", "-"},
    {"1F 02 05 02 01 00 00", "Error"},
    {"1F 00 05", "-"},  // a get's error without its channel id
    {"1F 02 05 01 00 00", "-"},
    {"1F 03", "-"},
    {"1F 03 05", "Error"},
    {"1F 03 05 AA BB", "Error"},
    {"42 00 00", "-"},  // no such opcode
    {"", "-"},
};

void PrintTo(const Accepted& row, std::ostream* out) {
    *out << row.payload;
}

class Acceptance : public testing::TestWithParam<Accepted> {};

}  // namespace

TEST_P(Acceptance, ChainsProduceExactlyTheWellFormedPayloadsAsTheirClass) {
    EXPECT_EQ(produced(bytes(GetParam().payload)), GetParam().as) << GetParam().payload;
}

INSTANTIATE_TEST_SUITE_P(Payloads, Acceptance, testing::ValuesIn(acceptance));

TEST(MessageBuilders, WriteTheLayoutOrNothingWhenTheFieldsDoNotFit) {
    const std::vector<unsigned int> mostIds(65535, 9);
    const std::vector<unsigned int> tooManyIds(65536, 9);
    const auto value = [](Bytes header, Bytes data) {
        return std::make_shared<ChannelValue>(5, std::move(header), std::move(data));
    };
    const std::pair<std::shared_ptr<const Message>, std::string> built[] = {
        {std::make_shared<Message>(OpCode{11}), "0B"},
        {GetRequest::newInstance({5, 6}), "00 02 00 05 00 00 00 06 00 00 00"},
        {SubscriptionRequest::newInstance({5}), "03 01 00 05 00 00 00"},
        {UnsubscriptionRequest::newInstance({5}), "03 01 00 05 00 00 00"},
        {SubscriptionResponse::newInstance({}), "0D 00 00"},
        {GetRequest::newInstance(tooManyIds), "<empty>"},
        {UnsubscriptionRequest::newInstance(tooManyIds), "<empty>"},
        {GetResponse::newInstance(
             {value({0xAA}, {0xBB, 0xCC}), std::make_shared<ChannelValue>(6, 0x01020304u)}),
         "0B 02 00" + OneValue + " 06 00 00 00 08 00 04 00 00 00 00 00 04 03 02 01"},
        {GetResponse::newInstance({nullptr}), "<empty>"},
        {GetResponse::newInstance({value(Bytes(1), Bytes(65535))}), "<empty>"},
        {GetResponse::newInstance(
             std::vector<std::shared_ptr<const ChannelValue>>(65536, value({}, {}))),
         "<empty>"},
        {SetRequest::newInstance(7, {0xAA}), "02 07 00 00 00 01 00 AA"},
        {SetRequest::newInstance(1, Bytes(65536, 1)), "<empty>"},
        {SetResponse::newInstance(0x01020304u), "0C 04 03 02 01"},
        {LoginRequest::newInstance("ab", "xyz"), Login},
        {LoginRequest::newInstance("", ""), "09 09 07 00 00"},
        {LoginRequest::newInstance(std::string(256, 'u'), ""), "<empty>"},
        {LoginRequest::newInstance("", std::string(256, 'p')), "<empty>"},
        {LoginResponse::newInstance(LoginResponse::TooManyConnections), "0F 02"},
        {LoginResponse::newInstance(static_cast<LoginResponse::Result>(3)), "<empty>"},
        {LogPushRequest::newInstance(false), "04 00"},
        {LogPushRequest::newInstance(true), "04 01"},
        {ErrorResponse::newInstance(2, 5, 0x102), "1F 02 05 02 01 00 00"},
        {ErrorResponse::newInstance(0, 5, 9), "1F 00 05 09 00 00 00"},
        {ErrorResponse::newInstance(3, 5, 0x102), "1F 03 05"},
    };
    for (const auto& [message, expected] : built) {
        EXPECT_EQ(message ? hex(message->write()) : "<empty>", expected);
    }
    EXPECT_EQ(GetRequest::newInstance(mostIds)->write().size(), 3u + 4u * 65535u);
    EXPECT_TRUE(LoginRequest::newInstance(std::string(255, 'u'), std::string(255, 'p')));
    EXPECT_TRUE(GetResponse::newInstance({value(Bytes(1), Bytes(65534))}));
    EXPECT_TRUE(SetRequest::newInstance(1, Bytes(65535, 1)));
}

TEST(MessageGetters, ReadTheirFieldsFromThePayload) {
    EXPECT_EQ(SubscriptionResponse(bytes("0D 03 00 07 00 00 00 01 00 00 00 07 00 00 00"))
                  .getChannelList(),
              (std::vector<unsigned int>{7, 1, 7}));
    const SetRequest set(bytes("02 07 00 00 00 02 00 AA BB"));
    EXPECT_EQ(set.getChannelId(), 7u);
    EXPECT_EQ(set.getData(), bytes("AA BB"));
    EXPECT_EQ(SetResponse(bytes("0C 07 00 00 00")).getChannelId(), 7u);
    EXPECT_EQ(LoginResponse(bytes("0F 01")).getResult(), LoginResponse::Success);
    EXPECT_TRUE(LogPushRequest(bytes("04 01")).getValue());

    // The login getters read one position lower than the layout: the username's
    // length from byte 2 (7), from position 4 on; the password's from byte 3.
    const LoginRequest login(bytes(Login));
    EXPECT_EQ(login.getUsername(), std::string("\x03"
                                               "abxyz\0",
                                               7));
    EXPECT_EQ(login.getPassword(), std::string(2, '\0'));

    const ErrorResponse trailing(bytes("1F 03 05 AA BB"));
    EXPECT_EQ(trailing.getTriggeringOpCode(), 3);
    EXPECT_EQ(trailing.getReasonCode(), 5);
    EXPECT_EQ(trailing.getChannelId(), 0xBBAAu);
    EXPECT_EQ(ErrorResponse(bytes("1F 00 07 04 03 02 01 FF")).getChannelId(), 0x01020304u);
    EXPECT_EQ(ErrorResponse(bytes("1F 03 05")).getChannelId(), 0u);

    EXPECT_EQ(GetResponse(bytes("0B 02 00 01 00 00 00 01 00 02 00 AA BB 00 00 00 00 00 00 00"))
                  .getChannelValues(),
              (std::vector<ChannelValue>{ChannelValue(1, bytes("AA BB"), {}),
                                         ChannelValue(0xBB, {}, {})}));
    // Not validated: two values counted, one there; the reader stops after it.
    EXPECT_EQ(GetResponse(bytes("0B 02 00" + OneValue)).getChannelValues(),
              (std::vector<ChannelValue>{ChannelValue(5, bytes("AA"), bytes("BB CC"))}));
    const Bytes extra = bytes("0B 01 00" + OneValue + " 77");
    ByteVectorReader reader(extra);
    EXPECT_EQ(GetResponse::extractChannelValues(reader).size(), 1u);
    EXPECT_EQ(reader.remainingBytes(), 1);
}

TEST(ChannelValue, SerialisesReadsAndComparesByContent) {
    for (const auto& [value, expected] :
         {std::pair{ChannelValue(5, 0x01020304u),
                    "05 00 00 00 08 00 04 00 00 00 00 00 04 03 02 01"},
          std::pair{ChannelValue(0x0A0B0C0Du, {}, {}), "0D 0C 0B 0A 00 00 00 00"}}) {
        Bytes out;
        ByteVectorWriter writer(out);
        value.writeBytes(writer);
        EXPECT_EQ(hex(out), expected);
        EXPECT_EQ(out.size(), value.wireSize());
    }

    const Bytes cut = bytes("05 00 00 00 08 00 04 00 00 00 00 00 04 03 02");
    ByteVectorReader reader(cut);
    EXPECT_EQ(ChannelValue::readBytes(reader), nullptr);
    EXPECT_TRUE(reader.readPastEnd());
    ByteVectorReader skipping(cut);
    EXPECT_FALSE(ChannelValue::skipBytes(skipping));
    EXPECT_EQ(skipping.getReadPosition(), 16u);

    // Total 2, header 4: the data length wraps, the reader moves back.
    const Bytes inside = bytes("05 00 00 00 02 00 04 00 AA BB CC DD EE");
    ByteVectorReader back(inside);
    EXPECT_EQ(ChannelValue::readValue(back), ChannelValue(5, bytes("AA BB CC DD"), {}));
    EXPECT_EQ(back.getReadPosition(), 10u);

    const ChannelValue a(3, bytes("01"), bytes("10 20"));
    const ChannelValue b(3, bytes("02"), bytes("10 20"));
    EXPECT_TRUE(a.valueEqual(b));
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(a.valueEqual(ChannelValue(4, bytes("01"), bytes("10 20"))));
    EXPECT_FALSE(a.valueEqual(ChannelValue(3, bytes("01"), bytes("10"))));
}

TEST(MessageProductionChain, TheLastProducerForAnOpCodeWinsAndUnknownOnesLeaveAnEmptyEntry) {
    auto chain = MessageProductionChain::newClientInstance();
    EXPECT_EQ(chain->size(), 5u);
    EXPECT_EQ(MessageProductionChain::newDeviceInstance()->size(), 5u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(chain->produceMessageFromFrame(bytes("42 00 00")), nullptr);
    }
    EXPECT_EQ(chain->size(), 6u);
    EXPECT_EQ(chain->getProducer(0x42), nullptr);

    chain->addProducer(3, SubscriptionRequest::read);
    chain->addProducer(3, UnsubscriptionRequest::read);
    const auto message = chain->produceMessageFromFrame(bytes("03 00 00"));
    ASSERT_TRUE(message);
    EXPECT_EQ(typeid(*message), typeid(UnsubscriptionRequest));
    EXPECT_EQ(chain->getProducer(3), &UnsubscriptionRequest::read);

    MessageProductionChain empty;  // an empty frame has no opcode: no entry made
    EXPECT_EQ(empty.produceMessageFromFrame(Bytes{}), nullptr);
    EXPECT_EQ(empty.size(), 0u);
}
