// Every message class through its wire bytes: which payloads its producer
// accepts, what the builders write, what the getters read, and which
// producers the two chains hold. The message_production fuzz target rebuilds
// every payload of its corpus from the getters and checks that a byte more or
// less is refused; those cases are not repeated here.
#include <gtest/gtest.h>

#include <utility>

#include "chanlink/chanlink.h"
#include "support/Bytes.h"

using testing_support::bytes;
using testing_support::Bytes;
using testing_support::hex;

namespace {

const std::string OneValue = " 05 00 00 00 03 00 01 00 AA BB CC";
const std::string Login = "09 09 07 02 03 61 62 78 79 7A";

const MessageProductionChain::Producer producers[] = {
    GetRequest::read,           SetRequest::read,
    SubscriptionRequest::read,  UnsubscriptionRequest::read,
    LogPushRequest::read,       UserAccountRequest::read,
    GetResponse::read,          SetResponse::read,
    SubscriptionResponse::read, LoginResponse::read,
    ErrorResponse::read};

struct Accepted {
    std::string payload;
    bool accepted;
};

const Accepted acceptance[] = {
    {"00 00 00", true},  // zero ids
    {"00 00", false},
    {"00 01 00 05 00 00 00", true},
    {"03 01 00 05 00 00 00", true},
    {"0D 01 00 05 00 00 00", true},
    {"0D 01 00", false},
    {"0B 00 00", true},
    {"0B 01 00" + OneValue, true},
    {"0B 01 00" + OneValue + " 00", false},
    {"0B 01 00 05 00 00 00 03 00 01 00 AA BB", false},
    {"0B 00", false},
    {"0B FF FF", false},
    {"0B 02 00" + OneValue + " 06 00 00 00 01 00 00 00", false},  // second value cut short
    // Total 1, header 2: the header takes the next value's first byte, and the
    // wrapped data length moves the reader back onto it.
    {"0B 02 00 01 00 00 00 01 00 02 00 AA BB 00 00 00 00 00 00 00", true},
    {"02 07 00 00 00 01 00 AA", true},
    {"02 07 00 00 00 00 00", true},  // empty data
    {"0C 07 00 00 00", true},
    {Login, true},
    {"09 09 07 00 00", true},
    {"09 09 08 02 03 61 62 78 79 7A", false},  // byte 2 is not 7
    {"09 09 07", false},
    {"09 05 07 00 00", false},  // not a login sub-message
    {"0F 01", true},
    {"0F 03", false},
    {"04 01", true},
    {"04 02", false},
    {"1F 02 05 02 01 00 00", true},
    {"1F 00 05", false},  // a get's error without its channel id
    {"1F 02 05 01 00 00", false},
    {"1F 03", false},
    {"1F 03 05", true},
    {"1F 03 05 AA BB", true},
    {"42 00 00", false},  // no such opcode
    {"", false},
};

void PrintTo(const Accepted& row, std::ostream* out) {
    *out << row.payload;
}

class Acceptance : public testing::TestWithParam<Accepted> {};

}  // namespace

// Each payload is taken, as it is, by the producer of its opcode (by both
// that share 3) or by none; and by the client's chain if it is a response
// (opcode 11 on), by the device's if it is a request.
TEST_P(Acceptance, ProducersTakeExactlyTheWellFormedPayloadsOfTheirOpCode) {
    static const auto client = MessageProductionChain::newClientInstance();
    static const auto device = MessageProductionChain::newDeviceInstance();
    const Bytes payload = bytes(GetParam().payload);
    const bool accepted = GetParam().accepted;
    int takers = 0;
    for (const auto producer : producers) {
        const auto message = producer(payload);
        takers += message != nullptr;
        EXPECT_EQ(message ? message->write() : payload, payload);
    }
    EXPECT_EQ(takers, !accepted ? 0 : payload[0] == 3 ? 2 : 1);
    EXPECT_EQ(client->produceMessageFromFrame(payload) != nullptr, accepted && payload[0] >= 11);
    EXPECT_EQ(device->produceMessageFromFrame(payload) != nullptr, accepted && payload[0] < 11);
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
        {UnsubscriptionRequest::newInstance({5}), "03 01 00 05 00 00 00"},
        {GetRequest::newInstance(tooManyIds), "<empty>"},
        {UnsubscriptionRequest::newInstance(tooManyIds), "<empty>"},
        {GetResponse::newInstance(
             {value({0xAA}, {0xBB, 0xCC}), std::make_shared<ChannelValue>(6, 0x01020304u)}),
         "0B 02 00" + OneValue + " 06 00 00 00 08 00 04 00 00 00 00 00 04 03 02 01"},
        {GetResponse::newInstance({value({}, {})}), "0B 01 00 05 00 00 00 00 00 00 00"},
        {GetResponse::newInstance({nullptr}), "<empty>"},
        {GetResponse::newInstance({value(Bytes(1), Bytes(65535))}), "<empty>"},
        {GetResponse::newInstance(
             std::vector<std::shared_ptr<const ChannelValue>>(65536, value({}, {}))),
         "<empty>"},
        {SetRequest::newInstance(1, Bytes(65536, 1)), "<empty>"},
        {SetResponse::newInstance(0x01020304u), "0C 04 03 02 01"},
        {LoginRequest::newInstance("", ""), "09 09 07 00 00"},
        {LoginRequest::newInstance(std::string(256, 'u'), ""), "<empty>"},
        {LoginRequest::newInstance("", std::string(256, 'p')), "<empty>"},
        {LoginResponse::newInstance(static_cast<LoginResponse::Result>(3)), "<empty>"},
        {LogPushRequest::newInstance(false), "04 00"},
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

// Getters of well-formed payloads give back what newInstance was given (the
// message_production fuzz target); these are the payloads where they do not.
TEST(MessageGetters, ReadTheirFieldsFromThePayloadUnchecked) {
    EXPECT_EQ(SubscriptionResponse(bytes("0D 03 00 07 00 00 00 01 00 00 00 07 00 00 00"))
                  .getChannelList(),
              (std::vector<unsigned int>{7, 1, 7}));

    // The login getters read one position lower than the layout: the username's
    // length from byte 2 (7), from position 4 on; the password's from byte 3.
    const LoginRequest login(bytes(Login));
    EXPECT_EQ(login.getUsername(), std::string("\x03"
                                               "abxyz\0",
                                               7));
    EXPECT_EQ(login.getPassword(), std::string(2, '\0'));

    EXPECT_EQ(ErrorResponse(bytes("1F 03 05 AA BB")).getChannelId(), 0xBBAAu);  // trailing bytes
    EXPECT_EQ(ErrorResponse(bytes("1F 00 07 04 03 02 01 FF")).getChannelId(), 0x01020304u);
    EXPECT_EQ(ErrorResponse(bytes("1F 03 05")).getChannelId(), 0u);
    EXPECT_STREQ(ReasonCode::describe(ReasonCode::UnknownChannel), "no such channel");
    EXPECT_STREQ(ReasonCode::describe(200), "device-specific reason");  // a device's own code

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

TEST(ChannelValue, ComparesValuesWithoutTheirHeadersAndReadsNothingCutShort) {
    const ChannelValue a(3, bytes("01"), bytes("10 20"));
    EXPECT_TRUE(a.valueEqual(ChannelValue(3, bytes("02"), bytes("10 20"))));
    EXPECT_FALSE(a == ChannelValue(3, bytes("02"), bytes("10 20")));
    EXPECT_FALSE(a.valueEqual(ChannelValue(4, bytes("01"), bytes("10 20"))));
    EXPECT_FALSE(a.valueEqual(ChannelValue(3, bytes("01"), bytes("10"))));

    const Bytes cut = bytes("05 00 00 00 08 00 04 00 00 00 00 00 04 03 02");
    ByteVectorReader reader(cut);
    EXPECT_EQ(ChannelValue::readBytes(reader), nullptr);
    EXPECT_TRUE(reader.readPastEnd());  // not rewound
}

// That the last producer added for an opcode wins is the message_production
// fuzz target's (its second device chain).
TEST(MessageProductionChain, UnknownOpCodesLeaveAnEmptyEntry) {
    auto chain = MessageProductionChain::newClientInstance();
    EXPECT_EQ(chain->size(), 5u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(chain->produceMessageFromFrame(bytes("42 00 00")), nullptr);
    }
    EXPECT_EQ(chain->size(), 6u);
    EXPECT_EQ(chain->getProducer(0x42), nullptr);

    MessageProductionChain empty;  // an empty frame has no opcode: no entry made
    EXPECT_EQ(empty.produceMessageFromFrame(Bytes{}), nullptr);
    EXPECT_EQ(empty.size(), 0u);
}
