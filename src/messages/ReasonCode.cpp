#include "chanlink/messages/ReasonCode.h"

namespace {

struct Entry {
    unsigned char code;
    const char* name;
    const char* description;
};

constexpr Entry Entries[] = {
    {ReasonCode::Success, "Success", "success"},
    {ReasonCode::SetRequestNotBuilt, "SetRequestNotBuilt", "set data too long to send"},
    {ReasonCode::BitBeyondData, "BitBeyondData", "bit lies beyond the channel's data"},
    {ReasonCode::Discarded, "Discarded", "discarded before an answer came"},
    {ReasonCode::ConnectionLost, "ConnectionLost", "connection lost before an answer came"},
    {ReasonCode::NotConnected, "NotConnected", "not connected; the request was not sent"},
    {ReasonCode::FrameTooLarge, "FrameTooLarge",
     "the device sent a frame larger than the client's bound; connection closed"},
    {ReasonCode::DeviceNotReading, "DeviceNotReading",
     "the device stopped reading requests; connection closed"},
    {ReasonCode::NotLoggedIn, "NotLoggedIn", "not logged in"},
    {ReasonCode::UnknownChannel, "UnknownChannel", "no such channel"},
    {ReasonCode::ReadOnlyChannel, "ReadOnlyChannel", "channel is read-only"},
    {ReasonCode::WrongDataSize, "WrongDataSize", "data size does not match the channel"},
};

const Entry* find(unsigned char code) {
    for (const Entry& entry : Entries) {
        if (entry.code == code) {
            return &entry;
        }
    }
    return nullptr;
}

}  // namespace

const char* ReasonCode::name(unsigned char code) {
    const Entry* entry = find(code);
    return entry != nullptr ? entry->name : nullptr;
}

const char* ReasonCode::describe(unsigned char code) {
    const Entry* entry = find(code);
    return entry != nullptr ? entry->description : "device-specific reason";
}
