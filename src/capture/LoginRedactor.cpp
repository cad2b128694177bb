#include "chanlink/capture/LoginRedactor.h"

#include "chanlink/messages/LoginRequest.h"
#include "chanlink/wire/Encoder.h"

namespace {

// In the unstuffed candidate: 4 length bytes, then the payload.
constexpr std::size_t OpCodeAt = 4;
constexpr std::size_t UsernameLengthAt = OpCodeAt + 3;
constexpr std::size_t PasswordLengthAt = OpCodeAt + 4;
constexpr std::size_t UsernameAt = OpCodeAt + 5;

}  // namespace

std::vector<unsigned char> LoginRedactor::take(const unsigned char* bytes, std::size_t count) {
    std::vector<unsigned char> out;
    out.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        takeByte(bytes[i], out);
    }
    return out;
}

std::vector<unsigned char> LoginRedactor::finish() {
    std::vector<unsigned char> out;
    if (state == State::Candidate) {
        release(out);
    }
    state = State::Outside;
    return out;
}

void LoginRedactor::takeByte(unsigned char byte, std::vector<unsigned char>& out) {
    if (byte == Encoder::StartMarker) {
        // A start marker ends any frame in progress, as for the decoder.
        if (state == State::Candidate) {
            release(out);
        }
        startCandidate();
        return;
    }
    if (state == State::Outside) {
        out.push_back(byte);
        return;
    }
    if (state == State::Masking) {
        if (byte == Encoder::EndMarker) {
            out.push_back(byte);
            state = State::Outside;
        } else {
            out.push_back('*');
        }
        return;
    }
    raw.push_back(byte);
    if (byte == Encoder::EndMarker) {
        release(out);
        state = State::Outside;
        return;
    }
    if (escapePending) {
        escapePending = false;
        broken = broken || byte > 2;
        plain.push_back(static_cast<unsigned char>(byte + 253));
    } else if (byte == Encoder::Escape) {
        escapePending = true;
    } else {
        plain.push_back(byte);
    }
    const bool opcodeKnown = plain.size() > OpCodeAt;
    if (opcodeKnown && plain[OpCodeAt] != UserAccountRequest::Code) {
        // Not a login: nothing to hide in the rest of this frame.
        out.insert(out.end(), raw.begin(), raw.end());
        state = State::Outside;
    } else if (broken || raw.size() > MaxLoginFrameBytes) {
        release(out);
        state = State::Masking;
    }
}

void LoginRedactor::startCandidate() {
    state = State::Candidate;
    raw.assign(1, Encoder::StartMarker);
    plain.clear();
    escapePending = false;
    broken = false;
}

void LoginRedactor::release(std::vector<unsigned char>& out) {
    if (plain.size() <= OpCodeAt) {
        // No payload byte yet, so no secret either.
        out.insert(out.end(), raw.begin(), raw.end());
        return;
    }
    if (isLogin()) {
        std::vector<unsigned char> payload(plain.begin() + OpCodeAt, plain.end());
        const std::size_t passwordAt = UsernameAt - OpCodeAt + plain[UsernameLengthAt];
        for (std::size_t i = passwordAt; i < payload.size(); ++i) {
            payload[i] = '*';
        }
        Encoder().injectFrame(payload, out);
        return;
    }
    out.push_back(raw.front());
    for (std::size_t i = 1; i < raw.size(); ++i) {
        out.push_back(raw[i] == Encoder::EndMarker ? raw[i] : '*');
    }
}

bool LoginRedactor::isLogin() const {
    if (broken || raw.back() != Encoder::EndMarker) {
        return false;
    }
    const std::size_t length =
        plain[0] | plain[1] << 8 | plain[2] << 16 | static_cast<std::size_t>(plain[3]) << 24;
    const std::vector<unsigned char> payload(plain.begin() + OpCodeAt, plain.end());
    return length == payload.size() && LoginRequest::validate(payload) &&
           plain.size() == UsernameAt + plain[UsernameLengthAt] + plain[PasswordLengthAt];
}
