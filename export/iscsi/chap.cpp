#include "export/iscsi/chap.h"

#include "export/iscsi/md5.h"
#include "platform/random.h"

namespace quilla::iscsi {

bool IsSameSecret(std::span<const std::byte> one, std::span<const std::byte> other) {
    if (one.size() != other.size())
        return false;
    std::byte difference{};
    for (std::size_t i = 0; i < one.size(); ++i)
        difference |= one[i] ^ other[i];
    return difference == std::byte{};
}

void Chap::Take(const TextKey& pair) {
    if (pair.key == "CHAP_A") {
        std::string_view list = pair.value;
        for (std::string_view algorithm; TakeListElement(list, algorithm);)
            offersMd5_ |= algorithm == "5";
    } else if (pair.key == "CHAP_N") {
        isNameRight_ = IsSameSecret(std::as_bytes(std::span(pair.value)), std::as_bytes(std::span(name_)));
    } else if (pair.key == "CHAP_R") {
        responseSize_ = ParseBinary(pair.value, response_).size();
    } else if (pair.key == "CHAP_I" || pair.key == "CHAP_C") {
        wantsProof_ = true;
    }
}

Chap::Step Chap::Advance(TextWriter& answer) {
    if (step_ == Step::Algorithm)
        step_ = offersMd5_ && Begin(answer) ? Step::Response : Step::Failed;
    else if (step_ == Step::Response)
        step_ = IsProven() ? Step::Passed : Step::Failed;
    return step_;
}

bool Chap::Begin(TextWriter& answer) {
    if (!FillFromSystemRandom(challenge_))
        return false;
    answer.Add("CHAP_A", "5");
    answer.AddNumber("CHAP_I", std::to_integer<std::uint32_t>(challenge_[0]));
    answer.AddBinary("CHAP_C", std::span(challenge_).subspan(1));
    return true;
}

bool Chap::IsProven() const {
    Md5 sum;
    sum.Add(std::span(challenge_).first(1));
    sum.Add(std::as_bytes(std::span(secret_)));
    sum.Add(std::span(challenge_).subspan(1));
    const bool isRight = IsSameSecret(sum.Finish(), std::span(response_).first(responseSize_));
    return isRight && isNameRight_ && !wantsProof_;
}

} // namespace quilla::iscsi
