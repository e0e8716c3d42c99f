// A row per key: how its result comes about, what this side offers, where the result goes.

#include "export/iscsi/negotiation.h"

#include <algorithm>

namespace quilla::iscsi {

namespace {

enum class Rule : std::uint8_t {
    Declared, ///< no answer
    Minimum,
    Maximum,
    Or,
    And,
    Digest,
    Fixed,   ///< always the same answer
    Refused, ///< "Reject": no longer in use
};

struct KeyRule {
    std::string_view key;
    Rule rule;
    std::uint32_t ours = 0; // for Or and And: 0 = No
    std::uint32_t least = 0;
    std::uint32_t most = 0;
    std::uint32_t Parameters::*number = nullptr;
    bool Parameters::*choice = nullptr;
    std::string_view text = {};
};

constexpr std::uint32_t kAnything = 0xFFFFFFFF;
constexpr std::uint32_t kLargest = (1U << 24) - 1;

// One session has one connection, nothing is retried, and data comes in order.
constexpr KeyRule kRules[] = {
    {"MaxRecvDataSegmentLength", Rule::Declared, 0, 512, kLargest, &Parameters::initiatorSegment},
    {"MaxBurstLength", Rule::Minimum, 1U << 20, 512, kLargest, &Parameters::maxBurst},
    {"FirstBurstLength", Rule::Minimum, 256U << 10, 512, kLargest, &Parameters::firstBurst},
    {.key = "InitialR2T", .rule = Rule::Or, .choice = &Parameters::initialReady},
    {.key = "ImmediateData", .rule = Rule::And, .ours = 1, .choice = &Parameters::immediateData},
    {.key = "HeaderDigest", .rule = Rule::Digest, .choice = &Parameters::headerDigest},
    {.key = "DataDigest", .rule = Rule::Digest, .choice = &Parameters::dataDigest},
    {"MaxConnections", Rule::Minimum, 1, 1, 65535},
    {"MaxOutstandingR2T", Rule::Minimum, 1, 1, 65535},
    {"ErrorRecoveryLevel", Rule::Minimum, 0, 0, 2},
    {"DefaultTime2Wait", Rule::Maximum, 0, 0, 3600},
    {"DefaultTime2Retain", Rule::Minimum, 0, 0, 3600},
    {"DataPDUInOrder", Rule::Or, 1},
    {"DataSequenceInOrder", Rule::Or, 1},
    {.key = "TaskReporting", .rule = Rule::Fixed, .text = "RFC3720"},
    {"iSCSIProtocolLevel", Rule::Minimum, 1, 0, 31},
    {.key = "IFMarker", .rule = Rule::Fixed, .text = "No"},
    {.key = "OFMarker", .rule = Rule::Fixed, .text = "No"},
    {"IFMarkInt", Rule::Refused},
    {"OFMarkInt", Rule::Refused},
    {"InitiatorAlias", Rule::Declared, 0, 0, kAnything},
};

constexpr std::string_view kReject = "Reject";

void NegotiateNumber(const KeyRule& rule, std::string_view value, Parameters& parameters,
                     TextWriter& answer) {
    std::uint32_t number = 0;
    if (!ParseNumber(value, number) || number < rule.least || number > rule.most)
        return answer.Add(rule.key, kReject);
    if (rule.rule == Rule::Minimum)
        number = std::min(number, rule.ours);
    if (rule.rule == Rule::Maximum)
        number = std::max(number, rule.ours);
    if (rule.number != nullptr)
        parameters.*rule.number = number;
    if (rule.rule != Rule::Declared)
        answer.AddNumber(rule.key, number);
}

void NegotiateChoice(const KeyRule& rule, std::string_view value, Parameters& parameters,
                     TextWriter& answer) {
    if (value != "Yes" && value != "No")
        return answer.Add(rule.key, kReject);
    const bool theirs = value == "Yes";
    const bool ours = rule.ours != 0;
    const bool result = rule.rule == Rule::Or ? ours || theirs : ours && theirs;
    if (rule.choice != nullptr)
        parameters.*rule.choice = result;
    answer.Add(rule.key, result ? "Yes" : "No");
}

void NegotiateDigest(const KeyRule& rule, std::string_view list, Parameters& parameters, TextWriter& answer) {
    for (std::string_view element; TakeListElement(list, element);) {
        if (element != "None" && element != "CRC32C")
            continue;
        parameters.*rule.choice = element == "CRC32C";
        return answer.Add(rule.key, element);
    }
    answer.Add(rule.key, kReject);
}

void Negotiate(const KeyRule& rule, std::string_view value, Parameters& parameters, TextWriter& answer) {
    switch (rule.rule) {
    case Rule::Declared:
        if (rule.number == nullptr)
            return;
        [[fallthrough]];
    case Rule::Minimum:
    case Rule::Maximum:
        return NegotiateNumber(rule, value, parameters, answer);
    case Rule::Or:
    case Rule::And:
        return NegotiateChoice(rule, value, parameters, answer);
    case Rule::Digest:
        return NegotiateDigest(rule, value, parameters, answer);
    case Rule::Fixed:
        return answer.Add(rule.key, rule.text);
    case Rule::Refused:
        return answer.Add(rule.key, kReject);
    }
}

} // namespace

void NegotiateKey(const TextKey& pair, Parameters& parameters, TextWriter& answer) {
    const auto* const rule = std::ranges::find(kRules, pair.key, &KeyRule::key);
    if (rule == std::end(kRules))
        return answer.Add(pair.key, "NotUnderstood");
    Negotiate(*rule, pair.value, parameters, answer);
}

} // namespace quilla::iscsi
