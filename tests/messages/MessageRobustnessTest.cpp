// Every producer over random and mutated payloads: each gives a message of its
// class holding exactly the payload, or nothing; nothing reads out of bounds
// (the asan build checks); and an accepted payload is built again, byte for
// byte, by newInstance fed with what the getters read.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <typeinfo>
#include <utility>

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
#include "support/Bytes.h"

using testing_support::bytes;
using testing_support::Bytes;
using testing_support::hex;

namespace {

Bytes payloadOf(const std::shared_ptr<const Message>& message) {
    return message ? message->write() : Bytes{};
}

template <class T>
Bytes rebuildChannelList(const Bytes& payload) {
    return payloadOf(T::newInstance(T(payload).getChannelList()));
}

Bytes rebuildGetResponse(const Bytes& payload) {
    std::vector<std::shared_ptr<const ChannelValue>> values;
    for (const ChannelValue& value : GetResponse(payload).getChannelValues()) {
        values.push_back(std::make_shared<ChannelValue>(value));
    }
    return payloadOf(GetResponse::newInstance(values));
}

Bytes rebuildSetRequest(const Bytes& payload) {
    const SetRequest request(payload);
    return payloadOf(SetRequest::newInstance(request.getChannelId(), request.getData()));
}

Bytes rebuildSetResponse(const Bytes& payload) {
    return payloadOf(SetResponse::newInstance(SetResponse(payload).getChannelId()));
}

// The login getters read one position low, so the strings are taken from the
// layout itself here.
Bytes rebuildLoginRequest(const Bytes& payload) {
    const ByteVectorReader reader(payload);
    const unsigned int usernameLength = reader.readUint8At(3);
    return payloadOf(
        LoginRequest::newInstance(reader.readStringAt(5, usernameLength),
                                  reader.readStringAt(5 + usernameLength, reader.readUint8At(4))));
}

Bytes rebuildLoginResponse(const Bytes& payload) {
    return payloadOf(LoginResponse::newInstance(LoginResponse(payload).getResult()));
}

Bytes rebuildLogPushRequest(const Bytes& payload) {
    return payloadOf(LogPushRequest::newInstance(LogPushRequest(payload).getValue()));
}

Bytes rebuildErrorResponse(const Bytes& payload) {
    const ErrorResponse error(payload);
    return payloadOf(ErrorResponse::newInstance(error.getTriggeringOpCode(), error.getReasonCode(),
                                                error.getChannelId()));
}

// The 16-bit count of channel-list messages and get responses.
unsigned int countField(const Bytes& payload) {
    return ByteVectorReader(payload).readUint16At(1);
}

// length bytes from at, NUL where the payload has ended.
std::string runOf(const Bytes& payload, std::size_t at, std::size_t length) {
    std::string run(length, '\0');
    for (std::size_t i = 0; i < length && at + i < payload.size(); ++i) {
        run[i] = static_cast<char>(payload[at + i]);
    }
    return run;
}

struct Case {
    const char* name;
    MessageProductionChain::Producer read;
    const std::type_info& type;
    Bytes (*rebuild)(const Bytes&);
    bool inDeviceChain;
    bool inClientChain;
};

const Case Cases[] = {
    {"GetRequest", GetRequest::read, typeid(GetRequest), rebuildChannelList<GetRequest>, true,
     false},
    {"SubscriptionRequest", SubscriptionRequest::read, typeid(SubscriptionRequest),
     rebuildChannelList<SubscriptionRequest>, true, false},
    {"UnsubscriptionRequest", UnsubscriptionRequest::read, typeid(UnsubscriptionRequest),
     rebuildChannelList<UnsubscriptionRequest>, false, false},
    {"SubscriptionResponse", SubscriptionResponse::read, typeid(SubscriptionResponse),
     rebuildChannelList<SubscriptionResponse>, false, true},
    {"GetResponse", GetResponse::read, typeid(GetResponse), rebuildGetResponse, false, true},
    {"SetRequest", SetRequest::read, typeid(SetRequest), rebuildSetRequest, true, false},
    {"SetResponse", SetResponse::read, typeid(SetResponse), rebuildSetResponse, false, true},
    {"LoginRequest", LoginRequest::read, typeid(LoginRequest), rebuildLoginRequest, false, false},
    {"UserAccountRequest", UserAccountRequest::read, typeid(LoginRequest), rebuildLoginRequest,
     true, false},
    {"LoginResponse", LoginResponse::read, typeid(LoginResponse), rebuildLoginResponse, false,
     true},
    {"LogPushRequest", LogPushRequest::read, typeid(LogPushRequest), rebuildLogPushRequest, true,
     false},
    {"ErrorResponse", ErrorResponse::read, typeid(ErrorResponse), rebuildErrorResponse, false,
     true},
};

// The get response rules spelled out literally: each value read field by
// field with the reader's own run reads.
struct LiteralGetResponse {
    bool accepted = false;
    bool headerLongerThanTotal = false;  // such a value does not survive a rebuild
    std::vector<ChannelValue> values;
};

LiteralGetResponse readLiterally(const Bytes& payload) {
    LiteralGetResponse result;
    ByteVectorReader reader(payload);
    const bool opCodeMatches = reader.readUint8() == GetResponse::Code;
    reader.setReadPosition(GetResponse::CountPosition);
    const unsigned int count = reader.readUint16();
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned int channelId = reader.readUint32();
        const unsigned int totalLength = reader.readUint16();
        const unsigned int headerLength = reader.readUint16();
        const Bytes header = reader.readBytes(headerLength);
        const Bytes data = reader.readBytes(totalLength - headerLength);
        if (!reader.readPastEnd()) {
            result.values.emplace_back(channelId, header, data);
            result.headerLongerThanTotal |= headerLength > totalLength;
        }
    }
    result.accepted = opCodeMatches && reader.remainingBytes() == 0;
    return result;
}

std::vector<Bytes> validPayloads() {
    const auto value = [](unsigned int id, std::size_t header, std::size_t data) {
        return std::make_shared<ChannelValue>(id, Bytes(header, 0x11), Bytes(data, 0x22));
    };
    std::vector<Bytes> seeds = {
        payloadOf(GetRequest::newInstance({})),
        payloadOf(GetRequest::newInstance({5, 0x01020304u})),
        payloadOf(SubscriptionRequest::newInstance({1, 2, 3})),
        payloadOf(SubscriptionResponse::newInstance({9})),
        payloadOf(GetResponse::newInstance({})),
        payloadOf(GetResponse::newInstance({value(1, 0, 4)})),
        payloadOf(GetResponse::newInstance({value(2, 4, 4), value(3, 0, 0), value(4, 2, 1)})),
        bytes("0B 02 00 01 00 00 00 01 00 02 00 AA BB 00 00 00 00 00 00 00"),
        payloadOf(SetRequest::newInstance(7, {})),
        payloadOf(SetRequest::newInstance(7, bytes("01 02 03 04 05"))),
        payloadOf(SetResponse::newInstance(0xA0B0C0D0u)),
        payloadOf(LoginRequest::newInstance("", "")),
        payloadOf(LoginRequest::newInstance("ab", "xyz")),
        payloadOf(LoginResponse::newInstance(LoginResponse::Success)),
        payloadOf(LogPushRequest::newInstance(true)),
        payloadOf(ErrorResponse::newInstance(0, 5, 7)),
        payloadOf(ErrorResponse::newInstance(2, 1, 0x102)),
        payloadOf(ErrorResponse::newInstance(3, 131, 0)),
        bytes("1F 04 02 AA BB CC"),
    };
    return seeds;
}

class PayloadSource {
public:
    explicit PayloadSource(unsigned int seed) : random(seed), seeds(validPayloads()) {}

    Bytes next() { return pick(4) == 0 ? randomPayload() : mutated(seeds[pick(seeds.size())]); }

private:
    // The generator's raw output, whose sequence the standard fixes, so runs
    // are the same with every standard library.
    std::size_t pick(std::size_t bound) { return random() % bound; }

    // Small numbers half the time: lengths and counts that nearly fit are
    // where the rules are decided.
    unsigned char anyByte() {
        return static_cast<unsigned char>(pick(2) == 0 ? pick(9) : pick(256));
    }

    Bytes randomPayload() {
        static const unsigned char OpCodes[] = {0, 2, 3, 4, 9, 11, 12, 13, 15, 31};
        Bytes payload(pick(24));
        for (auto& b : payload) {
            b = anyByte();
        }
        if (!payload.empty() && pick(4) != 0) {
            payload[0] = OpCodes[pick(sizeof OpCodes)];
        }
        return payload;
    }

    // One to three edits: flip a bit, overwrite, insert, delete or truncate.
    Bytes mutated(Bytes payload) {
        for (std::size_t edits = 1 + pick(3); edits > 0; --edits) {
            const std::size_t at = pick(payload.size() + 1);  // may be the end
            const std::size_t inside = payload.empty() ? 0 : at % payload.size();
            switch (payload.empty() ? 2 : pick(5)) {
                case 0:
                    payload[inside] ^= static_cast<unsigned char>(1u << pick(8));
                    break;
                case 1:
                    payload[inside] = anyByte();
                    break;
                case 2:
                    payload.insert(payload.begin() + static_cast<long>(at), anyByte());
                    break;
                case 3:
                    payload.erase(payload.begin() + static_cast<long>(inside));
                    break;
                default:
                    payload.resize(at);
                    break;
            }
        }
        return payload;
    }

    std::mt19937 random;
    std::vector<Bytes> seeds;
};

}  // namespace

TEST(MessageRobustness, EveryProducerAcceptsOnlyWhatItCanBuildAgain) {
    auto device = MessageProductionChain::newDeviceInstance();
    auto client = MessageProductionChain::newClientInstance();
    PayloadSource source(20240601u);
    std::map<std::string, int> accepted;
    int headerLongerThanTotal = 0;
    for (int round = 0; round < 20000 && !HasFailure(); ++round) {
        const Bytes payload = source.next();
        // Walking a count of up to 65535 literally, and rebuilding from the
        // getters of unchecked objects over garbage, are slow: they run when
        // the count is small, and the walk also on a sample.
        const bool sampled = round % 16 == 0;
        SCOPED_TRACE("payload " + hex(payload));
        std::shared_ptr<const Message> forDevice, forClient;
        for (const Case& c : Cases) {
            SCOPED_TRACE(c.name);
            const auto message = c.read(payload);
            // Each class accepts only its own opcode, so at most one registered
            // producer takes the payload.
            if (c.inDeviceChain && message) {
                forDevice = message;
            }
            if (c.inClientChain && message) {
                forClient = message;
            }
            if (!payload.empty() && payload[0] == GetResponse::Code &&
                c.read == GetResponse::read) {
                if (!message && !sampled && countField(payload) > 64) {
                    continue;
                }
                const LiteralGetResponse literal = readLiterally(payload);
                EXPECT_EQ(message != nullptr, literal.accepted);
                EXPECT_EQ(GetResponse(payload).getChannelValues(), literal.values);
                if (literal.accepted && literal.headerLongerThanTotal) {
                    ++headerLongerThanTotal;
                    continue;  // such a value cannot be built again
                }
            }
            if (!message) {
                if (countField(payload) <= 64) {
                    EXPECT_NE(c.rebuild(payload), payload);
                }
                continue;
            }
            ++accepted[c.name];
            EXPECT_EQ(typeid(*message), c.type);
            EXPECT_EQ(message->write(), payload);
            Bytes rebuilt = c.rebuild(payload);
            if (c.read == ErrorResponse::read && rebuilt.size() <= payload.size()) {
                // Trailing bytes are accepted and not built again.
                rebuilt.insert(rebuilt.end(), payload.begin() + static_cast<long>(rebuilt.size()),
                               payload.end());
            }
            EXPECT_EQ(hex(rebuilt), hex(payload));
            if (c.type == typeid(LoginRequest)) {
                // Lengths from bytes 2 and 3, strings from byte 4 on.
                const auto& login = dynamic_cast<const LoginRequest&>(*message);
                EXPECT_EQ(login.getUsername(), runOf(payload, 4, payload[2]));
                EXPECT_EQ(login.getPassword(), runOf(payload, 4u + payload[2], payload[3]));
            }
        }
        const auto fromDevice = device->produceMessageFromFrame(payload);
        const auto fromClient = client->produceMessageFromFrame(payload);
        for (const auto& [produced, expected] :
             {std::pair(fromDevice, forDevice), std::pair(fromClient, forClient)}) {
            ASSERT_EQ(produced != nullptr, expected != nullptr);
            if (produced) {
                EXPECT_EQ(typeid(*produced), typeid(*expected));
                EXPECT_EQ(produced->write(), payload);
            }
        }
    }
    EXPECT_LE(device->size(), 256u);
    // Every producer must have accepted many payloads, or the test proves
    // little about it.
    for (const Case& c : Cases) {
        EXPECT_GT(accepted[c.name], 20) << c.name;
    }
    EXPECT_GT(headerLongerThanTotal, 0);
}
