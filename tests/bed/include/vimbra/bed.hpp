// Test bed for programs that use Vimbra: a daemon that answers by script, notifications as a daemon
// sends them, and a capture of what the library logs. It needs neither the library's sources nor a
// real network daemon, and works with any test framework; failed findings explain themselves under
// GoogleTest.
//
//     #include <gtest/gtest.h>
//     #include <vimbra/bed.hpp>
//
//     using namespace vimbra::bed;
//
//     TEST(Mtu, IsSentAndAnswered) {
//         Capture log;
//         ScriptedDaemon daemon;                       // listens on /tmp/api_daemon
//         daemon.On(0x0108, Answer::Code(22));         // refuse with EINVAL
//         EXPECT_EQ(-1, VimbraIfaceSetMtu("eth0", 1400));
//         ASSERT_EQ(1u, daemon.Requests().size());
//         EXPECT_EQ(Pack().Text("eth0", 16).U32(1400), daemon.Requests()[0].body);
//         EXPECT_TRUE(log.Has(Kind::kError, "ApicMtuSet", "send and recv msg error, nErrId =
//         22!"));
//     }
//
// Run each test under `vimbra-sandbox`, which gives it a /tmp, /etc and /dev/log of its own; the
// fixed names in /tmp belong to the machine's real daemon otherwise, and the bed refuses to take
// them from it.
#ifndef VIMBRA_TESTS_BED_HPP
#define VIMBRA_TESTS_BED_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace testing {
class AssertionResult;
}

namespace vimbra::bed {

// How long any wait of the bed lasts before it is given up. Generous: it only costs time when a
// test fails, and sanitizers and emulators are slow.
inline constexpr std::chrono::milliseconds kPatience{40000};

// ---- Bytes -----------------------------------------------------------------------------------

// Bytes that print as a hex dump in a failed comparison.
class Bytes : public std::vector<uint8_t> {
 public:
    using std::vector<uint8_t>::vector;
    Bytes(const std::vector<uint8_t>& bytes) : std::vector<uint8_t>(bytes) {}
    Bytes(std::span<const uint8_t> bytes) : std::vector<uint8_t>(bytes.begin(), bytes.end()) {}

    // Numbers in host order, as they stand on the wire; 0 past the end.
    [[nodiscard]] uint16_t U16(size_t offset) const;
    [[nodiscard]] uint32_t U32(size_t offset) const;
    [[nodiscard]] int32_t S32(size_t offset) const { return static_cast<int32_t>(U32(offset)); }
    // Text that ends at a zero byte, at `width` bytes or at the end.
    [[nodiscard]] std::string Text(size_t offset, size_t width) const;
    [[nodiscard]] Bytes Slice(size_t offset, size_t count) const;
};

// 16 bytes a line, with the offset before them.
[[nodiscard]] std::string Hex(const Bytes& bytes);
void PrintTo(const Bytes& bytes, std::ostream* out);

// Builds the bytes of a record field by field, so that a test states the wire format by itself.
// Numbers are stored in host order.
class Pack {
 public:
    Pack& U8(uint8_t value);
    Pack& U16(uint16_t value);
    Pack& U32(uint32_t value);
    Pack& S32(int32_t value) { return U32(static_cast<uint32_t>(value)); }
    Pack& U64(uint64_t value);
    // `text` in a zero-filled field of `width` bytes; a longer text is cut.
    Pack& Text(std::string_view text, size_t width);
    Pack& Zeros(size_t count);
    Pack& Add(const Bytes& bytes);
    // An IPv4 address in text as its 4 bytes, an IPv6 address as its 16, in network order.
    Pack& In4(const char* text);
    Pack& In6(const char* text);
    // The 20 bytes of a family-tagged address: family (u16), two zeros, 16 bytes of address. Family
    // 2 takes an IPv4 text, 10 an IPv6 text.
    Pack& Address(uint16_t family, const char* text);
    // Zeros up to a total of `size` bytes.
    Pack& FillTo(size_t size);

    [[nodiscard]] const Bytes& Get() const { return bytes_; }
    operator const Bytes&() const { return bytes_; }
    friend bool operator==(const Pack& left, const Bytes& right) { return left.bytes_ == right; }

 private:
    Bytes bytes_;
};
void PrintTo(const Pack& pack, std::ostream* out);

// The bytes of a plain record.
template <typename Plain>
requires std::is_trivially_copyable_v<Plain>
[[nodiscard]] Bytes AsBytes(const Plain& record) {
    return Bytes(std::span(reinterpret_cast<const uint8_t*>(&record), sizeof record));
}

// ---- Waiting and looking -----------------------------------------------------------------------

// What a look at something found: true or false, and in words what was seen. EXPECT_TRUE prints the
// words.
class Finding {
 public:
    explicit Finding(bool found, std::string seen = "") : found_(found), seen_(std::move(seen)) {}
    explicit operator bool() const { return found_; }
    [[nodiscard]] const std::string& Seen() const { return seen_; }

    template <typename Result>
    requires std::is_same_v<Result, testing::AssertionResult>
    operator Result() const { return Result(found_) << seen_; }

 private:
    bool found_;
    std::string seen_;
};

// Asks `condition` again and again until it holds, every millisecond at first; false when it still
// does not after `patience`.
bool WaitFor(const std::function<bool()>& condition,
             std::chrono::milliseconds patience = kPatience);

// The process's open descriptors with what they refer to, except the bed's own.
[[nodiscard]] std::map<int, std::string> OpenDescriptors();

// The process's threads by name, and their number; the bed's own do not count. An emulator or a
// sanitizer has threads too: compare with the state before, not with 1. A thread that was joined
// may still be seen for a moment: use WaitFor.
[[nodiscard]] std::vector<std::string> ThreadNames();
[[nodiscard]] size_t Threads();

// Whole files; WriteFile makes the directories on the way. ReadFile of a missing file is empty.
void WriteFile(const std::string& path, std::string_view text);
[[nodiscard]] std::string ReadFile(const std::string& path);

// ---- The daemon --------------------------------------------------------------------------------

// One message as the daemon received it.
struct Request {
    uint32_t type = 0;
    uint32_t size = 0;  // as the header says
    int32_t flag = 0;
    Bytes body;
    Bytes raw;              // header and body as they came, also when incomplete
    size_t reads = 0;       // how many reads it took: 1 if it came in one piece
    bool complete = true;   // false when the client closed before all of it had come
    size_t connection = 0;  // which connection, counted from 0
};

// A point where one side waits until the test lets it go on. Copies are the same gate.
class Gate {
 public:
    Gate();
    // Blocks until the gate is open. False when nobody opened it in time.
    bool Pass() const;
    // Waits until `count` callers in all have come to the gate.
    [[nodiscard]] bool WaitArrived(size_t count = 1) const;
    [[nodiscard]] size_t Arrived() const;
    // Opens the gate for good.
    void Open() const;

 private:
    struct State;
    std::shared_ptr<State> state_;
};

// How the daemon treats one request.
class Answer {
 public:
    // A 4-byte reply with a result code.
    static Answer Code(int32_t code);
    // A reply with these bytes, or this record, as its body.
    static Answer Body(const Bytes& body);
    template <typename Plain>
    requires std::is_trivially_copyable_v<Plain>
    static Answer Record(const Plain& record) { return Body(AsBytes(record)); }
    // These bytes without a header.
    static Answer Raw(const Bytes& bytes);
    // No reply; the connection stays open until the client closes it or Release is called.
    static Answer Nothing();
    // No reply; the connection is closed as soon as the request has been read.
    static Answer Close();
    // The connection is closed as soon as it is accepted, nothing being read.
    static Answer CloseUnread();
    // The connection is kept, as with Nothing, and nothing is ever read from it.
    static Answer LeaveUnread();
    // The answer that `choose` makes of the request.
    static Answer By(std::function<Answer(const Request&)> choose);

    // Further settings, to be appended: `Answer::Code(0).Size(8)`.

    // The header's fields; without these the body's size, the request's type and 0.
    Answer Size(uint32_t size) const;
    Answer Type(uint32_t type) const;
    Answer Flag(int32_t flag) const;
    // Cuts the reply after so many bytes, each piece following when the client has read the one
    // before: InPieces({12}) parts the header from the body.
    Answer InPieces(std::initializer_list<size_t> cuts) const;
    // Runs `hook` after the request was recorded and before the answer goes out.
    Answer After(std::function<void(const Request&)> hook) const;
    // Waits at the gate before the answer goes out.
    Answer Behind(const Gate& gate) const;

 private:
    friend class ScriptedDaemon;
    enum class Act { kReply, kNothing, kClose, kCloseUnread, kLeaveUnread, kChoose };

    Act act_ = Act::kReply;
    bool framed_ = true;
    Bytes body_;
    std::optional<uint32_t> size_;
    std::optional<uint32_t> type_;
    int32_t flag_ = 0;
    std::vector<size_t> cuts_;
    std::function<void(const Request&)> hook_;
    std::function<Answer(const Request&)> choose_;
    std::optional<Gate> gate_;
};

// A network daemon that does what the test says. It listens on /tmp/<name>, serves every connection
// in a thread of its own, records each request and answers it. The answer is, in this order: the
// next of the type's queue, the next of the common queue, the type's own, the default. CloseUnread
// and LeaveUnread act before a type is known: only in the common queue and as default.
class ScriptedDaemon {
 public:
    // Throws std::runtime_error when the name cannot be served; another that serves it is left
    // alone.
    explicit ScriptedDaemon(std::string_view name = "api_daemon");
    // Opens every gate, ends every connection and thread, removes the socket.
    ~ScriptedDaemon();
    ScriptedDaemon(const ScriptedDaemon&) = delete;
    ScriptedDaemon& operator=(const ScriptedDaemon&) = delete;

    ScriptedDaemon& Default(Answer answer);            // Answer::Code(0) until set
    ScriptedDaemon& On(uint32_t type, Answer answer);  // for every request of this type
    ScriptedDaemon& Next(Answer answer);               // for one request, in order
    ScriptedDaemon& Next(uint32_t type, Answer answer);

    // The requests so far, in the order in which they were complete.
    [[nodiscard]] std::vector<Request> Requests() const;
    [[nodiscard]] std::vector<Request> Requests(uint32_t type) const;
    // Waits until `count` requests in all have come; false when they did not.
    [[nodiscard]] bool WaitRequests(size_t count) const;
    // Forgets the requests so far.
    void Forget();

    // Connections accepted so far, and those that the client has not closed yet.
    [[nodiscard]] size_t Connections() const;
    [[nodiscard]] size_t OpenConnections() const;
    // Waits until every connection is over.
    [[nodiscard]] bool WaitIdle() const;

    // Closes the connections that Nothing and LeaveUnread hold.
    void Release();

 private:
    class Server;
    std::unique_ptr<Server> server_;
};

// ---- The listeners' peer
// -------------------------------------------------------------------------

// Waits until somebody listens, or nobody any more, on /tmp/<name>; no connection is made.
[[nodiscard]] bool WaitForListener(std::string_view name,
                                   std::chrono::milliseconds patience = kPatience);
[[nodiscard]] bool WaitForNoListener(std::string_view name,
                                     std::chrono::milliseconds patience = kPatience);
[[nodiscard]] bool HasListener(std::string_view name);

// The bytes of a message: the header (type, size, flag) and the body.
[[nodiscard]] Bytes Message(uint32_t type, const Bytes& body, int32_t flag = 0);

// A client's connection to /tmp/<name>, for what a well-behaved daemon would not do.
class Connection {
 public:
    explicit Connection(std::string_view name);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    [[nodiscard]] bool Connected() const;
    [[nodiscard]] int Error() const { return error_; }  // errno of a failed connect
    // Sends all; false when the peer has closed.
    bool Send(const Bytes& bytes);
    // Sends in pieces, cut after so many bytes, each when the peer has read the one before.
    bool SendInPieces(const Bytes& bytes, std::initializer_list<size_t> cuts);
    // Waits until the peer has read everything that was sent.
    [[nodiscard]] bool WaitRead();
    // Up to `count` bytes, fewer when the peer closes or nothing comes in time.
    [[nodiscard]] Bytes Receive(size_t count, std::chrono::milliseconds patience = kPatience);
    // Nothing more will be sent: the peer reads an end.
    void EndSending();
    void Close();
    // Waits until the peer has closed its end.
    [[nodiscard]] bool WaitPeerClosed(std::chrono::milliseconds patience = kPatience);

 private:
    struct Socket;
    std::unique_ptr<Socket> socket_;
    int error_ = 0;
};

struct NotifyOptions {
    std::optional<uint32_t> size;  // the header's size, if it is to differ from the body's
    int32_t flag = 0;
    bool wait = true;  // until the listener has closed the connection, that is has dealt with it
};

// Sends one notification to the listener on /tmp/<name>, as the daemon does: one connection, one
// message. False when nobody listens, or when it was not dealt with in time.
bool Notify(std::string_view name, uint32_t type, const Bytes& body,
            const NotifyOptions& options = {});

// A server of /tmp/<name> that accepts nobody unless it is told to.
class DeafServer {
 public:
    // Takes the name from whoever has it; throws when that fails.
    explicit DeafServer(std::string_view name);
    ~DeafServer();
    DeafServer(const DeafServer&) = delete;
    DeafServer& operator=(const DeafServer&) = delete;

    // Takes the connection that has waited longest, reads what it has sent so far, sends these
    // bytes and closes it. What was read; empty when nobody waits. A reply is to something: with one
    // it is waited for.
    Bytes AcceptOne(const Bytes& reply = {});
    // Serves the name no more.
    void Close();

 private:
    struct Socket;
    std::unique_ptr<Socket> socket_;
};

// Connections that take every place in the backlog of who listens on /tmp/<name>.
class FullBacklog {
 public:
    explicit FullBacklog(std::string_view name);
    ~FullBacklog();
    FullBacklog(const FullBacklog&) = delete;
    FullBacklog& operator=(const FullBacklog&) = delete;

    [[nodiscard]] size_t Count() const;

 private:
    struct Connections;
    std::unique_ptr<Connections> connections_;
};

// ---- The log -----------------------------------------------------------------------------------

enum class Kind { kError, kPrint, kWarn, kPerror, kOther };
std::ostream& operator<<(std::ostream& out, Kind kind);

// One message, taken apart. On standard output a message ends at its newline or, having none, where
// the next one begins; text in between is Kind::kOther.
struct LogLine {
    Kind kind = Kind::kOther;
    int pid = 0;
    std::string function;
    int line = 0;
    std::string text;      // after the tag, without the final newline
    bool newline = false;  // whether there was one
    int errnoValue = 0;    // kPerror only
    std::string errnoText;
    int priority = -1;  // facility and level as sent to the system log; -1 on standard output
    std::string raw;
};
std::ostream& operator<<(std::ostream& out, const LogLine& line);

// Takes text of standard output apart.
[[nodiscard]] std::vector<LogLine> ParseLog(std::string_view text);
// Takes one message apart that was sent to the system log.
[[nodiscard]] LogLine ParseSyslog(std::string_view datagram);

// The priority that goes with a kind: 179 errors, 182 information, 183 warnings.
[[nodiscard]] int PriorityOf(Kind kind);

enum class Where { kBoth, kStdout, kSyslog };

// Stands for every function, or every text, in the questions below.
inline constexpr std::string_view kAny = "*";

// Takes standard output (descriptor 1) and the system log (/dev/log) over for its lifetime. What
// came on standard output is handed on to the real one at the end. One capture at a time.
class Capture {
 public:
    // Throws std::runtime_error when a system log daemon serves /dev/log.
    Capture();
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    [[nodiscard]] std::vector<LogLine> Stdout() const;
    [[nodiscard]] std::vector<LogLine> Syslog() const;
    [[nodiscard]] std::string StdoutText() const;

    // Is there a message of this kind, of this function, with exactly this text (for kPerror the
    // failed step)? By default it must be on both sides, and in the system log at its kind's
    // priority.
    [[nodiscard]] Finding Has(Kind kind, std::string_view function, std::string_view text,
                              Where where = Where::kBoth) const;
    // The same, waiting for it.
    [[nodiscard]] Finding WaitFor(Kind kind, std::string_view function, std::string_view text,
                                  Where where = Where::kBoth,
                                  std::chrono::milliseconds patience = kPatience) const;
    // How many there are; kBoth counts those in the system log and expects as many on standard
    // output: -1 when the two differ.
    [[nodiscard]] int Count(Kind kind, std::string_view function = kAny,
                            std::string_view text = kAny, Where where = Where::kBoth) const;
    // Nothing was written at all, or no error and no warning.
    [[nodiscard]] Finding IsSilent() const;
    [[nodiscard]] Finding HasNoTrouble() const;

    // Forgets what came so far.
    void Clear();
    // All that came, for a failure's message.
    [[nodiscard]] std::string Describe() const;

 private:
    class Sink;
    std::unique_ptr<Sink> sink_;
};

}  // namespace vimbra::bed

#endif
