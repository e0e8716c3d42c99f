// Sequences of control codes with arbitrary numbers, sent to a driver over a real file and to a model that
// holds the plain sectors: what fits is carried out to the byte, what does not changes nothing. Every buffer
// is a heap block of exactly the length its record tells, so that AddressSanitizer sees the first byte too
// many.

#include "quilladriver/volume_driver.h"

#include "fuzz/memory_file.h"
#include "platform/disk_codes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace {

using namespace quilla;
using quilla::fuzz::Require;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t kSectors = 20;
constexpr std::uint64_t kSize = kSectors * kSectorSize;
constexpr std::uint64_t kFileSize = kSize + 77; // the tail is not part of the device

/// The fuzzer's bytes, taken from the front; zeros when they run out.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

    [[nodiscard]] bool IsEmpty() const { return left_ == 0; }

    template <typename Number>
    Number Take() {
        Number number{};
        const std::size_t count = std::min(left_, sizeof(number));
        std::memcpy(&number, at_, count);
        at_ += count;
        left_ -= count;
        return number;
    }

    /// Mostly small numbers near the device's bounds, now and then any.
    std::uint64_t TakeNumber() {
        switch (Take<std::uint8_t>() % 8) {
        case 0:
            return Take<std::uint64_t>();
        case 1:
            return ~std::uint64_t{0} - Take<std::uint16_t>();
        case 2:
            return (std::uint64_t{1} << 32) - 8 + Take<std::uint8_t>() % 16;
        case 3:
            return std::uint64_t{Take<std::uint16_t>()};
        default:
            return std::uint64_t{Take<std::uint8_t>()} % (kSectors + 2);
        }
    }

  private:
    const std::uint8_t* at_;
    std::size_t left_;
};

std::uint64_t Clock() {
    static std::uint64_t time = 0;
    return ++time;
}

int completions = 0;

std::uint32_t CountCompletion(ScatterRequest* /*request*/) {
    ++completions;
    return 0;
}

class Session {
  public:
    explicit Session(Input input) : input_(input), plain_(kSize) {
        // Mostly without a cipher, for speed: what is tried here are the numbers of the requests.
        const std::uint8_t choice = input_.Take<std::uint8_t>() % 8;
        record_.Cipher = choice == 6 ? CipherId::Cast128 : choice == 7 ? CipherId::Twofish : CipherId::None;
        record_.Key.fill(std::byte{0x5C});
        Require(driver_.Attach(
            File::Open(file_.Path(), FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting),
            record_));
        Zero(0, kSize);
    }

    void Run() {
        for (int steps = 0; steps < 32 && !input_.IsEmpty(); ++steps)
            Step();
        Bytes whole(kSize);
        Require(Transfer(TransferDirection::Read, 0, whole) == DriverStatus::Success);
        Require(whole == plain_);
        Require(Control(IOCTL_VOLUME_DETACH, {}) == DriverStatus::Success);
        const auto content = file_.Content();
        Require(content.size() == kFileSize);
        Require(std::ranges::count(std::span(content).subspan(kSize), std::byte{0}) == kFileSize - kSize);
    }

  private:
    void Step() {
        switch (input_.Take<std::uint8_t>() % 6) {
        case 0:
            return StepScatter(input_.Take<std::uint8_t>() % 2 == 0 ? IOCTL_DISK_READ : DISK_IOCTL_READ,
                               false);
        case 1:
            return StepScatter(input_.Take<std::uint8_t>() % 2 == 0 ? IOCTL_DISK_WRITE : DISK_IOCTL_WRITE,
                               true);
        case 2:
        case 3:
            return StepTransfer();
        case 4:
            return StepZeroes();
        default:
            return StepAnything();
        }
    }

    [[nodiscard]] static bool Fits(std::uint64_t offset, std::uint64_t length) {
        return offset % kSectorSize == 0 && length % kSectorSize == 0 && offset <= kSize &&
               length <= kSize - offset;
    }

    DriverStatus Control(std::uint32_t code, std::span<std::byte> in, std::span<std::byte> out = {}) {
        returned_ = 0;
        return driver_.Control(code, in, out, returned_);
    }

    DriverStatus Transfer(TransferDirection direction, std::uint64_t offset, Bytes& bytes) {
        VolumeTransfer transfer{
            .offset = offset, .length = bytes.size(), .address = bytes.data(), .direction = direction};
        return Control(IOCTL_VOLUME_TRANSFER, std::as_writable_bytes(std::span(&transfer, 1)));
    }

    void Zero(std::uint64_t offset, std::uint64_t length) {
        VolumeTransfer transfer{.offset = offset,
                                .length = length,
                                .address = nullptr,
                                .direction = TransferDirection::WriteZeroes};
        const DriverStatus status =
            Control(IOCTL_VOLUME_TRANSFER, std::as_writable_bytes(std::span(&transfer, 1)));
        Require(status == (Fits(offset, length) ? DriverStatus::Success : DriverStatus::InvalidParameter));
        if (Fits(offset, length))
            std::fill_n(plain_.begin() + static_cast<std::ptrdiff_t>(offset), length, std::uint8_t{0});
    }

    void StepZeroes() {
        const std::uint64_t unit = input_.Take<std::uint8_t>() % 4 == 0 ? 1 : kSectorSize;
        const std::uint64_t offset = input_.TakeNumber() * unit; // may wrap, as a careless caller's would
        Zero(offset, input_.TakeNumber() * unit);
    }

    void StepTransfer() {
        const auto direction = static_cast<TransferDirection>(input_.Take<std::uint8_t>() % 4);
        if (direction == TransferDirection::WriteZeroes)
            return;
        const std::uint64_t offset =
            input_.TakeNumber() * (input_.Take<std::uint8_t>() % 4 == 0 ? 1 : kSectorSize);
        Bytes bytes(input_.TakeNumber() % (kSectors + 1) * kSectorSize, input_.Take<std::uint8_t>());
        const Bytes before = bytes;
        const DriverStatus status = Transfer(direction, offset, bytes);
        const bool isKnown = direction == TransferDirection::Read || direction == TransferDirection::Write;
        const bool isGood = isKnown && Fits(offset, bytes.size());
        // A transfer of nothing has an address of nothing.
        Require(status == (isGood ? DriverStatus::Success : DriverStatus::InvalidParameter));
        const auto place = isGood ? plain_.begin() + static_cast<std::ptrdiff_t>(offset) : plain_.end();
        if (isGood && direction == TransferDirection::Write)
            std::ranges::copy(before, place);
        else if (isGood)
            Require(std::ranges::equal(bytes, std::span(place, bytes.size())));
        else
            Require(bytes == before);
    }

    void StepScatter(std::uint32_t code, bool isWrite) {
        ScatterRequest request{};
        request.start = static_cast<std::uint32_t>(input_.TakeNumber());
        request.status = 0xFFFF;
        request.completion = input_.Take<std::uint8_t>() % 4 == 0 ? CountCompletion : nullptr;
        const std::uint32_t filled = input_.Take<std::uint8_t>() % std::uint32_t{kMaxScatterBuffers + 1};
        Bytes memory[kMaxScatterBuffers];
        std::uint64_t total = 0;
        bool isBacked = true;
        for (std::uint32_t i = 0; i < filled; ++i) {
            const std::uint64_t wish = input_.TakeNumber() * (i % 2 == 0 ? kSectorSize : 1);
            const auto length = static_cast<std::uint32_t>(wish);
            total += length;
            if (length <= kSize) {
                memory[i].assign(length, input_.Take<std::uint8_t>());
                request.buffers[i] = {.address = memory[i].data(), .length = length};
            } else {
                // More than the device holds: nothing may ever look there.
                isBacked = false;
                request.buffers[i] = {.address = reinterpret_cast<std::uint8_t*>(16), .length = length};
            }
        }
        const std::uint8_t twist = input_.Take<std::uint8_t>();
        request.bufferCount = twist == 1 ? static_cast<std::uint32_t>(input_.TakeNumber()) : filled;
        request.sectorCount = twist == 2 ? static_cast<std::uint32_t>(input_.TakeNumber())
                                         : static_cast<std::uint32_t>(total / kSectorSize);
        if (request.bufferCount != filled) {
            // Buffers beyond those filled are empty; those left out do not count.
            total = 0;
            isBacked = true;
            for (std::uint32_t i = 0; i < std::min<std::uint32_t>(request.bufferCount, kMaxScatterBuffers);
                 ++i) {
                total += request.buffers[i].length;
                isBacked = isBacked && request.buffers[i].length <= kSize;
            }
        }
        const std::uint64_t offset = std::uint64_t{request.start} * kSectorSize;
        const bool isGood = request.bufferCount <= kMaxScatterBuffers && isBacked &&
                            total == std::uint64_t{request.sectorCount} * kSectorSize && Fits(offset, total);

        const std::size_t needed =
            offsetof(ScatterRequest, buffers) +
            std::min<std::size_t>(request.bufferCount, kMaxScatterBuffers) * sizeof(ScatterBuffer);
        const bool isCut = twist == 3;
        const std::size_t size = isCut ? input_.Take<std::uint16_t>() % needed : sizeof(request);
        const std::unique_ptr<std::byte[]> record(new std::byte[size]);
        std::memcpy(record.get(), &request, size);
        const auto before = std::to_array(memory);
        const int completionsBefore = completions;
        const DriverStatus status = Control(code, {record.get(), size});

        Require(status == (isGood && !isCut ? DriverStatus::Success : DriverStatus::InvalidParameter));
        const bool isAnswered = !isCut && request.bufferCount <= kMaxScatterBuffers;
        Require(completions == completionsBefore + (isAnswered && request.completion != nullptr ? 1 : 0));
        if (isAnswered) {
            ScatterRequest answered{};
            std::memcpy(&answered, record.get(), size);
            Require(answered.status == static_cast<std::uint32_t>(status));
        }
        if (isWrite || status != DriverStatus::Success)
            Require(std::ranges::equal(memory, before));
        if (status == DriverStatus::Success)
            Follow(isWrite, offset, memory, request.bufferCount);
    }

    /// What a good request has done: to the model when it wrote, to the buffers when it read.
    void Follow(bool isWrite, std::uint64_t offset, std::span<const Bytes> memory, std::uint32_t count) {
        auto place = plain_.begin() + static_cast<std::ptrdiff_t>(offset);
        for (const Bytes& bytes : memory.first(count)) {
            if (isWrite)
                std::ranges::copy(bytes, place);
            else
                Require(std::ranges::equal(bytes, std::span(place, bytes.size())));
            place += static_cast<std::ptrdiff_t>(bytes.size());
        }
    }

    /// Any code with records of any size and content, except those that carry addresses.
    void StepAnything() {
        constexpr std::uint32_t kCodes[] = {
            IOCTL_DISK_GETINFO, IOCTL_DISK_INITIALIZED, IOCTL_DISK_FLUSH_CACHE, DISK_IOCTL_GETINFO,
            DISK_IOCTL_GETNAME, IOCTL_VOLUME_QUERY,     IOCTL_VOLUME_UPDATE,    IOCTL_DISK_GET_LENGTH_INFO,
            0xDEADBEEF,         IOCTL_DISK_READ,        IOCTL_DISK_WRITE,       IOCTL_VOLUME_TRANSFER,
        };
        const std::uint32_t code = kCodes[input_.Take<std::uint8_t>() % std::size(kCodes)];
        const bool carriesAddresses =
            code == IOCTL_DISK_READ || code == IOCTL_DISK_WRITE || code == IOCTL_VOLUME_TRANSFER;
        const std::size_t inSize = input_.Take<std::uint16_t>() % (carriesAddresses ? 32 : 1200);
        const std::size_t outSize = input_.Take<std::uint16_t>() % 64;
        const std::unique_ptr<std::byte[]> in(new std::byte[inSize]);
        const std::unique_ptr<std::byte[]> out(new std::byte[outSize]);
        std::memset(in.get(), input_.Take<std::uint8_t>(), inSize);
        const DriverStatus status = Control(code, {in.get(), inSize}, {out.get(), outSize});
        Require(returned_ <= std::max(inSize, outSize));
        Require(!carriesAddresses || status == DriverStatus::InvalidParameter || inSize >= 24);
    }

    Input input_;
    const fuzz::MemoryFile file_{std::vector<std::byte>(kFileSize)};
    VolumeRecord record_{};
    VolumeDriver driver_{Clock};
    Bytes plain_;
    std::uint32_t returned_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Session(Input(data, size)).Run();
    return 0;
}
