#pragma once

#include <cstddef>
#include <vector>

// Takes the bytes a client sends, as they go, and gives back what a
// capture may show: the same bytes, except that the password of every
// login request is replaced by '*' bytes of the same length.
//
// A well-formed login frame comes back as the frame of the masked payload,
// stuffed afresh: its byte count differs from the original when password
// bytes had been stuffed. Any other frame that starts with opcode 9 (a
// broken or unfinished login) comes back as its start marker, '*' for each
// following byte and its end marker, if any. Other bytes are held back
// only until the frame they belong to shows its opcode.
class LoginRedactor {
public:
    // The bytes to record for the next bytes of the stream.
    std::vector<unsigned char> take(const unsigned char* bytes, std::size_t count);
    // The end of the stream: what is still held, masked if need be.
    std::vector<unsigned char> finish();

    // The longest login frame: both names 255 bytes, every byte stuffed.
    static constexpr std::size_t MaxLoginFrameBytes = 2 + 2 * (4 + 5 + 255 + 255);

private:
    enum class State { Outside, Candidate, Masking };

    void takeByte(unsigned char byte, std::vector<unsigned char>& out);
    void startCandidate();
    // The candidate is done with (complete or not): appends what to record.
    void release(std::vector<unsigned char>& out);
    bool isLogin() const;

    State state = State::Outside;
    std::vector<unsigned char> raw;    // the candidate's bytes from its start marker
    std::vector<unsigned char> plain;  // the same, unstuffed, without the start marker
    bool escapePending = false;
    bool broken = false;
};
