// Pages about the unit: identification, limits, modes.

#include "export/iscsi/parameter_data.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace quilla::iscsi {

namespace {

constexpr std::string_view kVendor = "QUILLA";
constexpr std::string_view kProduct = "Encrypted Volume";

using SerialText = std::array<char, 17>;
SerialText SerialOf(const UnitState& unit) {
    SerialText text;
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(unit.identity));
    return text;
}

void PutSupportedPages(ParameterData& data, const UnitState& unit);

void PutSerialNumber(ParameterData& data, const UnitState& unit) {
    data.PutText(SerialOf(unit).data(), 16);
}

void PutIdentification(ParameterData& data, const UnitState& unit) {
    constexpr std::uint8_t kBinary = 1, kAscii = 2, kVendorBased = 1, kWorldWide = 3;
    data.Put8(kBinary);
    data.Put8(kWorldWide);
    data.Put16(8);
    data.Put64(std::uint64_t{3} << 60 | unit.identity >> 4); // locally assigned
    data.Put8(kAscii);
    data.Put8(kVendorBased);
    data.Put16(8 + 16);
    data.PutText(kVendor, 8);
    data.PutText(SerialOf(unit).data(), 16);
}

void PutBlockLimits(ParameterData& data, const UnitState& /*unit*/) {
    data.Put16(0); // no COMPARE AND WRITE
    data.Put16(kBlocksInPhysical);
    data.Put32(kMaxTransferBlocks);
    data.Put32(2048); // best
    data.FillTo(64);  // WRITE SAME has no limit
}

void PutCharacteristics(ParameterData& data, const UnitState& /*unit*/) {
    data.Put16(1); // does not rotate
    data.FillTo(64);
}

void PutProvisioning(ParameterData& data, const UnitState& /*unit*/) {
    data.PutZeroes(4); // fully provisioned, nothing is ever unmapped
}

struct VitalPage {
    std::uint8_t code;
    void (*put)(ParameterData& data, const UnitState& unit);
};

constexpr VitalPage kVitalPages[] = {
    {0x00, PutSupportedPages}, {0x80, PutSerialNumber},    {0x83, PutIdentification},
    {0xB0, PutBlockLimits},    {0xB1, PutCharacteristics}, {0xB2, PutProvisioning},
};

void PutSupportedPages(ParameterData& data, const UnitState& /*unit*/) {
    for (const VitalPage& page : kVitalPages)
        data.Put8(page.code);
}

constexpr std::uint8_t kCachingPage[20] = {0x08, 0x12};
constexpr std::uint8_t kControlPage[12] = {0x0A, 0x0A, 0, 0x10}; // commands may be reordered
constexpr std::size_t kCachingFlags = 2;
constexpr std::uint8_t kWriteCacheEnabled = 0x04;

struct ModePage {
    std::uint8_t code;
    std::span<const std::uint8_t> values;
    std::uint8_t changeable; // bits of the byte at kCachingFlags
};

constexpr ModePage kModePages[] = {
    {0x08, kCachingPage, kWriteCacheEnabled},
    {0x0A, kControlPage, 0},
};

constexpr std::size_t kLargestModePage = sizeof(kCachingPage);

std::array<std::uint8_t, kLargestModePage> CurrentValues(const ModePage& page, const UnitState& unit) {
    std::array<std::uint8_t, kLargestModePage> values{};
    std::ranges::copy(page.values, values.begin());
    if (unit.cachesWrites)
        values[kCachingFlags] |= page.changeable;
    return values;
}

/// Whether a page that an initiator sent asks for nothing but what can be changed.
bool IsAcceptable(const ModePage& page, std::span<const std::byte> sent, const UnitState& unit) {
    const auto values = CurrentValues(page, unit);
    if (sent.size() != page.values.size())
        return false;
    for (std::size_t i = 1; i < sent.size(); ++i) {
        const int fixed = i == kCachingFlags ? ~page.changeable : ~0;
        if (((std::to_integer<int>(sent[i]) ^ values[i]) & fixed) != 0)
            return false;
    }
    return true;
}

const ModePage* FindModePage(unsigned code) {
    const auto* const page = std::ranges::find(kModePages, code, &ModePage::code);
    return page == std::end(kModePages) ? nullptr : page;
}

} // namespace

void ParameterData::PutZeroes(std::size_t count) {
    std::memset(bytes_.data() + used_, 0, count);
    used_ += count;
}

void ParameterData::Put(std::span<const std::uint8_t> bytes) {
    std::ranges::copy(std::as_bytes(bytes), bytes_.begin() + static_cast<std::ptrdiff_t>(used_));
    used_ += bytes.size();
}

void ParameterData::PutText(std::string_view text, std::size_t size) {
    std::memset(bytes_.data() + used_, ' ', size);
    std::memcpy(bytes_.data() + used_, text.data(), std::min(text.size(), size));
    used_ += size;
}

void PutStandardInquiry(ParameterData& data, bool unitExists) {
    data.Put8(unitExists ? 0x00 : 0x7F); // direct access, or no device can be there
    data.Put8(0);
    data.Put8(6);    // SPC-4
    data.Put8(0x12); // hierarchical addresses, format 2
    data.Put8(91);
    data.PutZeroes(2);
    data.Put8(0x02); // commands queue
    data.PutText(kVendor, 8);
    data.PutText(kProduct, 16);
    data.PutText("1.0", 4);
    data.FillTo(58);
    constexpr std::uint16_t kSam5 = 0x00A0, kSpc4 = 0x0460, kSbc3 = 0x04C0, kIscsi = 0x0960;
    for (const std::uint16_t standard : {kSam5, kSpc4, kSbc3, kIscsi})
        data.Put16(standard);
    data.FillTo(96);
}

Sense PutVitalPage(ParameterData& data, std::uint8_t code, const UnitState& unit) {
    const auto* const page = std::ranges::find(kVitalPages, code, &VitalPage::code);
    if (page == std::end(kVitalPages))
        return kInvalidField;
    data.Put8(0);
    data.Put8(code);
    data.Put16(0);
    page->put(data, unit);
    data.SetLength16(2);
    return kNoSense;
}

Sense PutModePages(ParameterData& data, std::uint8_t control, std::uint8_t subpage, const UnitState& unit) {
    constexpr unsigned kAllPages = 0x3F, kChangeable = 1, kSaved = 3;
    const unsigned code = control & 0x3F;
    const unsigned kind = control >> 6;
    if (kind == kSaved)
        return kNothingSaved;
    if ((code != kAllPages && FindModePage(code) == nullptr) ||
        (subpage != 0 && (code != kAllPages || subpage != 0xFF)))
        return kInvalidField;
    for (const ModePage& page : kModePages) {
        if (code != kAllPages && code != page.code)
            continue;
        auto values = CurrentValues(page, unit);
        if (kind == kChangeable) {
            std::fill(values.begin() + 2, values.end(), std::uint8_t{0});
            values[kCachingFlags] = page.changeable;
        }
        data.Put(std::span(values).first(page.values.size()));
    }
    return kNoSense;
}

Sense SelectModePages(std::span<const std::byte> pages, UnitState& unit) {
    bool cachesWrites = unit.cachesWrites;
    while (pages.size() >= 2) {
        const ModePage* const page = FindModePage(std::to_integer<unsigned>(pages[0]));
        const std::size_t size = std::size_t{2} + std::to_integer<std::size_t>(pages[1]);
        if (page == nullptr || size > pages.size() || !IsAcceptable(*page, pages.first(size), unit))
            return kInvalidParameter;
        if (page->changeable != 0)
            cachesWrites = (std::to_integer<unsigned>(pages[kCachingFlags]) & page->changeable) != 0;
        pages = pages.subspan(size);
    }
    if (!pages.empty())
        return kParameterLengthError;
    unit.cachesWrites = cachesWrites;
    return kNoSense;
}

} // namespace quilla::iscsi
