#pragma once

#include "export/iscsi/chap.h"
#include "export/iscsi/negotiation.h"
#include "export/iscsi/pdu_channel.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quilla::iscsi {

/// What an initiator has to name and to prove.
struct TargetIdentity {
    std::string_view target; ///< name, a secret too
    std::string_view user;
    std::string_view secret;
};

/// The initiator's end of a session: one that logs in with the end of another takes its place.
struct InitiatorPort {
    std::array<char, 224> name{};
    std::array<std::uint8_t, 6> session{};

    [[nodiscard]] bool operator==(const InitiatorPort&) const = default;
};

/// The first phase of a connection (RFC 7143, section 6.3): who it is, proof that he may, terms. What an
/// initiator may say is bounded: so many units, so many bytes, so much time.
class Login {
  public:
    static constexpr unsigned kMaxUnits = 32;
    static constexpr std::size_t kMaxText = 16384;

    Login(PduChannel& channel, const TargetIdentity& identity)
        : channel_(channel), identity_(identity), chap_(identity.user, identity.secret) {}
    ~Login();
    Login(const Login&) = delete;
    Login& operator=(const Login&) = delete;

    /// Runs the phase up to its last answer; true if that is to be Conclude.
    [[nodiscard]] bool Run(std::uint32_t limitMilliseconds);

    /// The last answer: welcome in a session with that handle, or not.
    [[nodiscard]] bool Conclude(std::uint16_t handle);
    void Refuse(LoginStatus status);

    [[nodiscard]] bool IsDiscovery() const { return isDiscovery_; }
    [[nodiscard]] const Parameters& Terms() const { return parameters_; }
    [[nodiscard]] const InitiatorPort& Port() const { return port_; }
    [[nodiscard]] std::uint16_t ConnectionNumber() const { return connectionNumber_; }

    /// Why the initiator was refused, for people; null when it left by itself.
    [[nodiscard]] const char* Refusal() const { return refusal_; }

  private:
    enum class Stage : std::uint8_t { Security = 0, Operational = 1, FullFeature = 3 };
    enum class Outcome : std::uint8_t { Continue, Done, Close };

    [[nodiscard]] Outcome ServeUnit(const Pdu& pdu);
    [[nodiscard]] LoginStatus Begin(const Request& request);
    [[nodiscard]] LoginStatus TakeKeys(Stage stage);
    [[nodiscard]] LoginStatus TakeKey(const TextKey& pair);
    [[nodiscard]] LoginStatus CheckNames() const;
    [[nodiscard]] LoginStatus Authenticate();
    [[nodiscard]] bool Answer(LoginStatus status, bool transits);

    PduChannel& channel_;
    const TargetIdentity& identity_;
    Chap chap_;
    Parameters parameters_;
    TextWriter answer_;
    InitiatorPort port_;
    Request request_{}; // that is being answered
    Stage stage_ = Stage::Security;
    bool hasBegun_ = false;
    bool hasNames_ = false; // the keys of the first request have been taken
    bool isDiscovery_ = false;
    bool isTargetNamed_ = false;
    bool isTargetRight_ = false;
    bool offersChap_ = false;
    bool isChapChosen_ = false;
    bool hasChapKeys_ = false; // in the unit that is being answered
    bool hasDeclared_ = false;
    std::uint16_t handle_ = 0;
    std::uint16_t connectionNumber_ = 0;
    std::size_t textSize_ = 0;
    std::array<char, kMaxText> text_; // keys gathered over continued units
    const char* refusal_ = nullptr;
};

} // namespace quilla::iscsi
