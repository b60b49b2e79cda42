#include "platform/services/messages.h"

#include "platform/common/fnv.h"

namespace KestSupport::platform {
namespace {

constexpr std::uint32_t kRecordMark = 0x3152534B;   // "KSR1"
constexpr std::uint32_t kRunMark = 0x3148534B;      // "KSH1"
constexpr std::uint32_t kRequestMark = 0x3143534B;  // "KSC1"
constexpr std::uint32_t kReplyMark = 0x3141534B;    // "KSA1"
constexpr std::uint32_t kStartMark = 0x3153534B;    // "KSS1"
constexpr std::size_t kWordSize = 4;

void putWord(std::string& bytes, std::uint32_t word) {
    for (unsigned shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<char>(word >> shift & 0xFF));
}

// Reads words of putWord, and texts. Missing bytes read as zero or empty, and isShort reports them.
class MessageReader {
  public:
    explicit MessageReader(std::string_view bytes) : m_rest(bytes) {}

    std::uint32_t word() {
        std::uint32_t value = 0;
        const std::string_view taken = text(kWordSize);
        for (std::size_t i = 0; i < taken.size(); ++i)
            value |= static_cast<std::uint32_t>(static_cast<unsigned char>(taken[i])) << 8 * i;
        return value;
    }
    std::string_view text(std::size_t size) {
        if (size > m_rest.size()) {
            m_short = true;
            size = 0;
        }
        const std::string_view taken = m_rest.substr(0, size);
        m_rest.remove_prefix(size);
        return taken;
    }
    bool isShort() const { return m_short; }
    /// Whether exactly all bytes were read.
    bool isWhole() const { return !m_short && m_rest.empty(); }

  private:
    std::string_view m_rest;
    bool m_short = false;
};

// Detects a torn record. It need not resist an attacker, since other users cannot write the file.
std::uint32_t checksum(std::string_view bytes) {
    return fnv1a<std::uint32_t>(bytes);
}

void putStatus(std::string& bytes, const ServiceStatus& status) {
    for (const std::uint32_t word : {status.serviceType, status.currentState, status.controlsAccepted, status.exitCode,
                                     status.serviceExitCode, status.checkPoint, status.waitHint, status.processId})
        putWord(bytes, word);
}

ServiceStatus takeStatus(MessageReader& reader) {
    ServiceStatus status;
    for (std::uint32_t* const field :
         {&status.serviceType, &status.currentState, &status.controlsAccepted, &status.exitCode,
          &status.serviceExitCode, &status.checkPoint, &status.waitHint, &status.processId})
        *field = reader.word();
    return status;
}

bool isState(std::uint32_t state) {
    return state >= kServiceStopped && state <= kServicePaused;
}

void putTime(std::string& bytes, std::int64_t time) {
    const auto bits = static_cast<std::uint64_t>(time);
    putWord(bytes, static_cast<std::uint32_t>(bits));
    putWord(bytes, static_cast<std::uint32_t>(bits >> 32));
}

std::int64_t takeTime(MessageReader& reader) {
    const std::uint64_t low = reader.word();
    return static_cast<std::int64_t>(low | std::uint64_t{reader.word()} << 32);
}

constexpr std::uint32_t kEndRequested = 1;
constexpr std::uint32_t kExitCodeKnown = 2;

std::string marked(std::uint32_t mark) {
    std::string bytes;
    bytes.reserve(kServiceRecordSize);
    putWord(bytes, mark);
    return bytes;
}

}  // namespace

std::string encodeRecord(const ServiceStatus& status) {
    std::string bytes = marked(kRecordMark);
    putStatus(bytes, status);
    putWord(bytes, checksum(bytes));
    return bytes;
}

std::optional<ServiceStatus> decodeRecord(std::string_view bytes) {
    MessageReader reader(bytes);
    if (reader.word() != kRecordMark) return std::nullopt;
    const ServiceStatus status = takeStatus(reader);
    const std::uint32_t expected = checksum(bytes.substr(0, kServiceRecordSize - kWordSize));
    if (reader.word() != expected || !reader.isWhole() || !isState(status.currentState)) return std::nullopt;
    return status;
}

std::string encodeRun(const ServiceRun& run) {
    std::string bytes = marked(kRunMark);
    putWord(bytes, run.processId);
    putTime(bytes, run.started);
    putTime(bytes, run.ended);
    putWord(bytes, (run.endRequested ? kEndRequested : 0) | (run.exitCode ? kExitCodeKnown : 0));
    putWord(bytes, static_cast<std::uint32_t>(run.exitCode.value_or(0)));
    putWord(bytes, checksum(bytes));
    return bytes;
}

std::optional<ServiceRun> decodeRun(std::string_view bytes) {
    MessageReader reader(bytes);
    if (reader.word() != kRunMark) return std::nullopt;
    ServiceRun run;
    run.processId = reader.word();
    run.started = takeTime(reader);
    run.ended = takeTime(reader);
    const std::uint32_t facts = reader.word();
    const auto exitCode = static_cast<int>(reader.word());
    run.endRequested = (facts & kEndRequested) != 0;
    if ((facts & kExitCodeKnown) != 0) run.exitCode = exitCode;
    return encodeRun(run) == bytes ? std::optional(run) : std::nullopt;
}

std::string encodeRequest(std::uint32_t control) {
    std::string bytes = marked(kRequestMark);
    putWord(bytes, control);
    return bytes;
}

std::optional<std::uint32_t> decodeRequest(std::string_view bytes) {
    MessageReader reader(bytes);
    if (reader.word() != kRequestMark) return std::nullopt;
    const std::uint32_t control = reader.word();
    return reader.isWhole() ? std::optional(control) : std::nullopt;
}

std::string encodeReply(const ServiceReply& reply) {
    std::string bytes = marked(kReplyMark);
    putWord(bytes, reply.error);
    putStatus(bytes, reply.status);
    return bytes;
}

std::optional<ServiceReply> decodeReply(std::string_view bytes) {
    MessageReader reader(bytes);
    if (reader.word() != kReplyMark) return std::nullopt;
    ServiceReply reply;
    reply.error = reader.word();
    reply.status = takeStatus(reader);
    return reader.isWhole() ? std::optional(reply) : std::nullopt;
}

std::string encodeStart(const std::vector<std::string>& texts) {
    std::string bytes = marked(kStartMark);
    putWord(bytes, static_cast<std::uint32_t>(texts.size()));
    for (const std::string& text : texts) {
        putWord(bytes, static_cast<std::uint32_t>(text.size()));
        bytes += text;
    }
    return bytes;
}

std::optional<std::vector<std::string>> decodeStart(std::string_view bytes) {
    MessageReader reader(bytes);
    if (reader.word() != kStartMark) return std::nullopt;
    std::vector<std::string> texts;
    for (std::uint32_t count = reader.word(); count > 0 && !reader.isShort(); --count)
        texts.emplace_back(reader.text(reader.word()));
    if (!reader.isWhole() || texts.empty()) return std::nullopt;
    return texts;
}

}  // namespace KestSupport::platform
