#include "swapi/telnet.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace pavo {
namespace {

// Of RFC 854.
constexpr unsigned char kSe = 240, kSb = 250, kWill = 251, kWont = 252, kDo = 253, kDont = 254, kIac = 255;

}  // namespace

std::string TelnetFilter::take(std::string_view bytes, std::string &answer) {
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        switch (state_) {
            case State::Data:
                if (byte == kIac)
                    state_ = State::Command;
                else if (byte != 0)
                    text += c;
                break;
            case State::Command:
                state_ = byte == kWill   ? State::Will
                         : byte == kWont ? State::Wont
                         : byte == kDo   ? State::Do
                         : byte == kDont ? State::Dont
                         : byte == kSb   ? State::Sub
                                         : State::Data;
                if (byte == kIac)
                    text += c;
                break;
            case State::Sub:
                state_ = byte == kIac ? State::SubCommand : State::Sub;
                break;
            case State::SubCommand:
                state_ = byte == kSe ? State::Data : State::Sub;
                break;
            case State::Will:
            case State::Do:
                answer += static_cast<char>(kIac);
                answer += static_cast<char>(state_ == State::Will ? kDont : kWont);
                answer += c;
                [[fallthrough]];
            case State::Wont:
            case State::Dont:
                state_ = State::Data;
                break;
        }
    }
    return text;
}

std::string SecretMask::take(std::string_view piece) {
    if (secret_.empty())
        return std::string(piece);
    std::string whole(secret_.substr(0, begun_));
    whole.reserve(begun_ + piece.size());
    whole += piece;
    std::vector<bool> hidden(whole.size());
    const auto hide = [&](std::size_t at, std::size_t size) {
        std::fill_n(hidden.begin() + static_cast<std::ptrdiff_t>(at), size, true);
    };
    for (auto at = whole.find(secret_); at != std::string::npos; at = whole.find(secret_, at + 1))
        hide(at, secret_.size());
    std::size_t begun = std::min(secret_.size() - 1, whole.size());
    while (!whole.ends_with(secret_.substr(0, begun)))
        --begun;
    hide(whole.size() - begun, begun);

    std::string shown;
    for (std::size_t i = begun_; i < whole.size(); ++i)
        if (!hidden[i])
            shown += whole[i];
        else if (i == begun_ || !hidden[i - 1])
            shown += "********";
    explicit_bzero(whole.data(), whole.size());
    begun_ = begun;
    return shown;
}

LoginStage loginStageOf(std::string_view text) {
    const auto has = [&](std::string_view mark) { return text.find(mark) != std::string_view::npos; };
    if (has("User:"))
        return LoginStage::User;
    if (has("Password:"))
        return LoginStage::Password;
    if (has("configure"))
        return LoginStage::Done;
    if (!has("("))
        return LoginStage::Invalid;
    if (text.find('>', 1) != std::string_view::npos)
        return LoginStage::UserMode;
    if (has(") #"))
        return LoginStage::Privileged;
    return has("(Config)#") ? LoginStage::Done : LoginStage::Invalid;
}

}  // namespace pavo
