// quilla-nbd-load: loads an NBD server with requests and prints what it achieved. It keeps a number of
// requests in flight on one connection, asks for simple replies only, and takes many replies per receive, so
// that it costs little beside the server.

#include "platform/byte_order.h"
#include "platform/socket.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace quilla {
namespace {

constexpr char kUsage[] =
    "usage: quilla-nbd-load URI read|write sequential|random SIZE DEPTH SECONDS [THINK]\n"
    "  URI      nbd://127.0.0.1:PORT/EXPORT\n"
    "  SIZE     bytes per request\n"
    "  DEPTH    requests in flight\n"
    "  THINK    microseconds of work between an answer and the next request\n"
    "Prints requests per second, MB per second, and the 10th, 50th and 90th percentile of the latency in\n"
    "microseconds.\n";

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::byte>;

struct Load {
    std::uint16_t port = 0;
    std::string exportName;
    bool isWrite = false;
    bool isRandom = false;
    std::uint32_t size = 0;
    std::uint32_t depth = 0;
    double seconds = 0;
    std::chrono::microseconds think{};
};

struct Figures {
    std::uint64_t requests = 0;
    double seconds = 0;
    std::vector<double> latencies; // microseconds
};

class LoadClient {
  public:
    explicit LoadClient(const Load& load) : load_(load), sent_(load.depth), received_(1U << 20) {}

    /// Connects and enters the export.
    bool Open() {
        socket_ = Socket::ConnectLoopback(load_.port);
        if (!socket_.IsOpen() || !Need(18))
            return false;
        Take(18);
        Bytes hello(4 + 16 + 4 + load_.exportName.size() + 2);
        StoreBig<std::uint32_t>(hello.data(), 3);
        std::memcpy(&hello[4], "IHAVEOPT", 8);
        StoreBig<std::uint32_t>(&hello[12], 7);
        StoreBig(&hello[16], static_cast<std::uint32_t>(load_.exportName.size() + 6));
        StoreBig(&hello[20], static_cast<std::uint32_t>(load_.exportName.size()));
        std::ranges::copy(std::as_bytes(std::span(load_.exportName)), &hello[24]);
        return socket_.Send(hello) && TakeAnswers() && size_ >= load_.size;
    }

    bool Run(Figures& figures) {
        const auto start = Clock::now();
        const auto end =
            start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(load_.seconds));
        std::uint32_t inFlight = 0;
        Bytes batch;
        for (auto now = start; now < end || inFlight > 0; now = Clock::now()) {
            batch.clear();
            for (; inFlight < load_.depth && now < end; ++inFlight)
                AddRequest(batch, now);
            if (!batch.empty() && !socket_.Send(batch))
                return false;
            do {
                if (!TakeReply(figures))
                    return false;
                --inFlight;
            } while (inFlight > 0 && end_ - begin_ >= 16);
            for (const auto answer = Clock::now(); Clock::now() - answer < load_.think;) {
            }
        }
        figures.seconds = std::chrono::duration<double>(Clock::now() - start).count();
        return true;
    }

  private:
    bool Need(std::size_t count) {
        if (received_.size() - begin_ < count) {
            std::memmove(received_.data(), &received_[begin_], end_ - begin_);
            end_ -= begin_;
            begin_ = 0;
        }
        while (end_ - begin_ < count) {
            const std::size_t got = socket_.Receive(std::span(received_).subspan(end_));
            if (got == 0)
                return false;
            end_ += got;
        }
        return true;
    }

    const std::byte* Take(std::size_t count) {
        const std::byte* const at = &received_[begin_];
        begin_ += count;
        if (begin_ == end_)
            begin_ = end_ = 0;
        return at;
    }

    bool TakeAnswers() {
        for (;;) {
            if (!Need(20))
                return false;
            const std::byte* const header = Take(20);
            const auto result = LoadBig<std::uint32_t>(header + 12);
            const auto length = LoadBig<std::uint32_t>(header + 16);
            if (result == 1)
                return true;
            if (result != 3 || !Need(length))
                return false;
            const std::byte* const info = Take(length);
            if (LoadBig<std::uint16_t>(info) == 0)
                size_ = LoadBig<std::uint64_t>(info + 2);
        }
    }

    std::uint64_t NextOffset() {
        const std::uint64_t places = size_ / load_.size;
        random_ = random_ * 6364136223846793005 + 1442695040888963407;
        return (load_.isRandom ? random_ >> 24 : number_) % places * load_.size;
    }

    /// When a request left. In order or not, a cookie's slot is free again long before its number comes
    /// round.
    Clock::time_point& SentAt(std::uint64_t cookie) {
        sent_.resize(std::max<std::size_t>(sent_.size(), 4096));
        return sent_[static_cast<std::size_t>(cookie % sent_.size())];
    }

    void AddRequest(Bytes& batch, Clock::time_point now) {
        const std::size_t at = batch.size();
        batch.resize(at + 28 + (load_.isWrite ? load_.size : 0), std::byte{0x5A});
        StoreBig<std::uint32_t>(&batch[at], 0x25609513);
        StoreBig<std::uint16_t>(&batch[at + 4], 0);
        StoreBig<std::uint16_t>(&batch[at + 6], load_.isWrite ? 1 : 0);
        StoreBig<std::uint64_t>(&batch[at + 8], number_);
        StoreBig<std::uint64_t>(&batch[at + 16], NextOffset());
        StoreBig<std::uint32_t>(&batch[at + 24], load_.size);
        SentAt(number_) = now;
        ++number_;
    }

    bool TakeReply(Figures& figures) {
        if (!Need(16))
            return false;
        const std::byte* const reply = Take(16);
        const auto cookie = LoadBig<std::uint64_t>(reply + 8);
        if (LoadBig<std::uint32_t>(reply) != 0x67446698 || LoadBig<std::uint32_t>(reply + 4) != 0)
            return false;
        for (std::size_t left = load_.isWrite ? 0 : load_.size; left > 0;) {
            const std::size_t piece = std::min(left, received_.size() / 2);
            if (!Need(piece))
                return false;
            Take(piece);
            left -= piece;
        }
        ++figures.requests;
        figures.latencies.push_back(
            std::chrono::duration<double, std::micro>(Clock::now() - SentAt(cookie)).count());
        return true;
    }

    const Load& load_;
    Socket socket_;
    std::uint64_t size_ = 0;
    std::uint64_t number_ = 0;
    std::uint64_t random_ = 1;
    std::vector<Clock::time_point> sent_;
    Bytes received_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

bool ParseUri(std::string_view uri, Load& load) {
    constexpr std::string_view kPrefix = "nbd://127.0.0.1:";
    if (!uri.starts_with(kPrefix))
        return false;
    uri.remove_prefix(kPrefix.size());
    load.port = static_cast<std::uint16_t>(std::strtoul(uri.data(), nullptr, 10));
    const std::size_t slash = uri.find('/');
    load.exportName = slash == std::string_view::npos ? "" : std::string(uri.substr(slash + 1));
    return load.port != 0;
}

int Run(int count, char** arguments) {
    Load load;
    if (count < 7 || count > 8 || !ParseUri(arguments[1], load)) {
        std::fputs(kUsage, stderr);
        return EXIT_FAILURE;
    }
    load.isWrite = std::strcmp(arguments[2], "write") == 0;
    load.isRandom = std::strcmp(arguments[3], "random") == 0;
    load.size = static_cast<std::uint32_t>(std::strtoul(arguments[4], nullptr, 10));
    load.depth = static_cast<std::uint32_t>(std::strtoul(arguments[5], nullptr, 10));
    load.seconds = std::strtod(arguments[6], nullptr);
    if (count == 8)
        load.think = std::chrono::microseconds(std::strtol(arguments[7], nullptr, 10));
    LoadClient client(load);
    Figures figures;
    if (!client.Open() || !client.Run(figures) || figures.latencies.empty()) {
        std::fputs("quilla-nbd-load: the server does not serve\n", stderr);
        return EXIT_FAILURE;
    }
    std::ranges::sort(figures.latencies);
    const auto percentile = [&](std::size_t percent) {
        return figures.latencies[(figures.latencies.size() - 1) * percent / 100];
    };
    const double perSecond = static_cast<double>(figures.requests) / figures.seconds;
    std::printf("%.0f %.1f %.1f %.1f %.1f\n", perSecond, perSecond * load.size / 1e6, percentile(10),
                percentile(50), percentile(90));
    return EXIT_SUCCESS;
}

} // namespace
} // namespace quilla

int main(int count, char** arguments) {
    return quilla::Run(count, arguments);
}
