// The server of the pages: what it takes from a client, what it sends, and how it ends those who take too
// long.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <csignal>
#include <map>
#include <mutex>

#include "host_temp_dir.h"
#include "tools/serve/http/byte_range.h"
#include "tools/serve/http/gate.h"
#include "tools/serve/http/listener.h"
#include "tools/serve/http/secret_file.h"
#include "tools/serve/http/server.h"
#include "tools/serve/http/target.h"

namespace koli::serve {
namespace {

using std::chrono::milliseconds;

TEST(TargetTest, SegmentsAreDecodedOnceAndNothingElse) {
    const std::string longest(4094, 'a');
    const std::map<std::string, std::vector<std::string>> good = {
        {"/", {}},
        {"/a/b%20c", {"a", "b c"}},
        {"/%252e%252e/%c3%a4\xff", {"%2e%2e", "\xc3\xa4\xff"}},
        {"/...\\/a+b", {"...\\", "a+b"}},
        {"/" + longest, {longest}}};
    for (const auto& [path, segments] : good)
        EXPECT_EQ(SegmentsOf(path), segments) << path;
    for (const char* path :
         {"", "a", "//", "/a/", "/a//b", "/.", "/../a", "/a/%2e%2E", "/a%2Fb", "/%00", "/a%", "/a%4", "/%g0"})
        EXPECT_EQ(SegmentsOf(path), std::nullopt) << path;
    EXPECT_EQ(SegmentsOf("/" + longest + "a"), std::nullopt);
}

TEST(RangeTest, OneRangeOfTenBytes) {
    struct Case {
        const char* header;
        ByteRange::Kind kind;
        int64_t first, length;
    };
    const Case cases[] = {{"bytes=0-0", ByteRange::kPart, 0, 1},
                          {"Bytes= 2-", ByteRange::kPart, 2, 8},
                          {"bytes=9-99999999999999999999", ByteRange::kPart, 9, 1},
                          {"bytes=-3", ByteRange::kPart, 7, 3},
                          {"bytes=-99999999999999999999", ByteRange::kPart, 0, 10},
                          {"bytes=10-", ByteRange::kNone, 0, 0},
                          {"bytes=9223372036854775807-9223372036854775807", ByteRange::kNone, 0, 0},
                          {"bytes=-0", ByteRange::kNone, 10, 0},
                          {"bytes=5-4", ByteRange::kWhole, 0, 0},
                          {"bytes=0-1,3-4", ByteRange::kWhole, 0, 0},
                          {"bytes=--1", ByteRange::kWhole, 0, 0},
                          {"bytes=-", ByteRange::kWhole, 0, 0},
                          {"bytes=+1-2", ByteRange::kWhole, 0, 0},
                          {"lines=0-1", ByteRange::kWhole, 0, 0},
                          {"", ByteRange::kWhole, 0, 0}};
    for (const auto& [header, kind, first, length] : cases) {
        const ByteRange range = RangeOf(header, 10);
        EXPECT_EQ(std::tuple(range.kind, range.first, range.length), std::tuple(kind, first, length))
            << header;
    }
    EXPECT_EQ(RangeOf("bytes=-5", 0).kind, ByteRange::kNone);
}

TEST(GateTest, OnlyItsOwnNamesAndPages) {
    const Gate gate({"Nas.example", "proxy:9000"});
    const LocalEnd loopback{"127.0.0.1", true, 8080}, near{"fd00::1", false, 8080},
        web{"192.0.2.1", false, 80};
    struct Case {
        const LocalEnd& end;
        const char *host, *origin, *site, *mode;
        bool is_let_in;
    };
    const Case cases[] = {{loopback, "127.0.0.1:8080", "", "", "", true},
                          {loopback, "LocalHost:8080", "http://localhost:8080", "same-origin", "cors", true},
                          {loopback, "[::1]:8080", "", "", "", true},
                          {loopback, "localhost", "", "", "", false},
                          {loopback, "localhost:8081", "", "", "", false},
                          {loopback, "evil.example:8080", "", "", "", false},
                          {loopback, "localhost.:8080", "", "", "", false},
                          {loopback, "", "", "", "", false},
                          {loopback, "nas.example:1", "https://nas.example:1", "", "", true},
                          {loopback, "proxy:9000", "", "", "", true},
                          {loopback, "proxy:9001", "", "", "", false},
                          {near, "[FD00:0::1]:8080", "", "", "", true},
                          {near, "localhost:8080", "", "", "", false},
                          {near, "[fd00::1]x:8080", "", "", "", false},
                          {web, "192.0.2.1", "", "", "", true},
                          {loopback, "localhost:8080", "null", "", "", false},
                          {loopback, "localhost:8080", "http://localhost:8081", "", "", false},
                          {loopback, "localhost:8080", "http://evil.example", "", "", false},
                          {loopback, "localhost:8080", "", "cross-site", "navigate", true},
                          {loopback, "localhost:8080", "", "cross-site", "no-cors", false},
                          {loopback, "localhost:8080", "", "same-site", "cors", false},
                          {loopback, "localhost:8080", "", "none", "navigate", true}};
    for (const auto& [end, host, origin, site, mode, is_let_in] : cases) {
        Request request;
        request.method = "GET";
        request.headers.Add("host", host);
        if (*origin != '\0') request.headers.Add("origin", origin);
        request.headers.Add("sec-fetch-site", site);
        request.headers.Add("sec-fetch-mode", mode);
        request.headers.Add("sec-fetch-dest", "document");
        EXPECT_EQ(gate.Refusal(request, end) == nullptr, is_let_in)
            << host << ' ' << origin << ' ' << site << mode;
        request.headers.Add("host", host);
        EXPECT_NE(gate.Refusal(request, end), nullptr) << "twice";
    }
}

/// A server whose pages are the first segment of their address; "file" is a file, "later" is answered by the
/// test.
class ServerTest : public testing::Test, protected test::TempDir {
  protected:
    void Start(const std::string& token = "", ConnectionLimits limits = {}) {
        signal(SIGPIPE, SIG_IGN);
        std::string error;
        limits.interval = milliseconds(10);
        ServerSettings settings{.listener = ListenOn("127.0.0.1:0", &error), .token = token};
        settings.sessions_file = Path("sessions");
        settings.limits = limits;
        host_ = BrowserAddress(settings.listener.get()).substr(7);
        host_.pop_back();
        const auto form = [](const LoginView& view) { return PlainReply(200, "form for " + view.next); };
        ASSERT_TRUE(server_.Start(
            std::move(settings), {.login = form},
            [this](const Request& request, Responder responder) { Show(request, std::move(responder)); },
            &error))
            << error;
    }
    void Show(const Request& request, Responder responder) {
        const std::string page = request.path.empty() ? "" : request.path.front();
        if (page == "file") {
            Reply reply{.type = "audio/mpeg"};
            reply.file = UniqueFd(open(Path("file").c_str(), O_RDONLY | O_CLOEXEC));
            return responder.Answer(std::move(reply));
        }
        if (page == "injected") return responder.Answer({.headers = {{"X-Name", "a\r\nX-Evil: b"}}});
        if (page == "thrown") throw 1;
        if (page == "dropped") return;
        if (page != "later") return responder.Answer(PlainReply(200, page + request.parameters.Value("q")));
        const std::lock_guard lock(mutex_);
        later_.push_back(std::move(responder));
    }
    size_t count() {
        const std::lock_guard lock(mutex_);
        return later_.size();
    }
    UniqueFd Connect() {
        UniqueFd client(socket(AF_INET, SOCK_STREAM, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(std::stoi(host_.substr(host_.find(':') + 1))));
        EXPECT_EQ(connect(client.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        const timeval patience{20, 0};
        setsockopt(client.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        return client;
    }
    static void Send(const UniqueFd& client, const std::string& text) {
        send(client.get(), text.data(), text.size(), MSG_NOSIGNAL);
    }
    /// What comes until the server closes, which it does here; "(still open)" at its end when it does not.
    static std::string Rest(const UniqueFd& client) {
        std::string all;
        char bytes[65536];
        ssize_t length;
        while ((length = recv(client.get(), bytes, sizeof bytes, 0)) > 0)
            all.append(bytes, static_cast<size_t>(length));
        return length < 0 && errno == EAGAIN ? all + "(still open)" : all;
    }
    std::string Ask(const std::string& line, const std::string& headers = "", const std::string& body = "") {
        const UniqueFd client = Connect();
        Send(client,
             line + " HTTP/1.1\r\nHost: " + host_ + "\r\nConnection: close\r\n" + headers + "\r\n" + body);
        return Rest(client);
    }
    std::string Post(const std::string& path, const std::string& form, const std::string& headers = "") {
        return Ask("POST " + path,
                   headers + "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                       std::to_string(form.size()) + "\r\n",
                   form);
    }
    static std::string StatusOf(const std::string& reply) {
        return reply.substr(0, 12).substr(reply.find(' ') + 1);
    }
    static std::string Header(const std::string& reply, const std::string& name) {
        const size_t at = reply.find("\r\n" + name + ": ");
        return at == std::string::npos
                   ? ""
                   : reply.substr(at + name.size() + 4, reply.find("\r\n", at + 2) - at - name.size() - 4);
    }
    static std::string BodyOf(const std::string& reply) { return reply.substr(reply.find("\r\n\r\n") + 4); }

    std::string host_;
    std::mutex mutex_;
    std::vector<Responder> later_;
    Server server_;
};

TEST_F(ServerTest, WhatIsNoRequestForIt) {
    Start();
    const std::string name = "\r\nHost: " + host_ + "\r\n", x = std::string(9000, 'x');
    const std::pair<std::string, const char*> cases[] = {
        {"GET /a?q=%2Bb+c HTTP/1.1" + name, "200"},
        {"GET / HTTP/1.0\r\n", "200"},
        {"GET / HTTP/1.1\r\n", "400"},
        {"GET http://" + host_ + "/ HTTP/1.1" + name, "400"},
        {"GET /../etc HTTP/1.1" + name, "400"},
        {"GET /?q=%00 HTTP/1.1" + name, "400"},
        {"GET / HTTP/1.1\r\nHost: evil.example\r\n", "403"},
        {"GET / HTTP/1.1" + name + "Host: evil.example\r\n", "403"},
        {"GET / HTTP/1.1" + name + "Origin: http://evil.example\r\n", "403"},
        {"DELETE / HTTP/1.1" + name, "405"},
        {"CONNECT a:1 HTTP/1.1" + name, "405"},
        {"POST / HTTP/1.1" + name + "Content-Length: 0\r\n", "405"},
        {"GET / HTTP/1.1" + name + "Content-Length: 3\r\n", "413"},
        {"GET / HTTP/1.1" + name + "Transfer-Encoding: chunked\r\n", "411"},
        {"POST /login HTTP/1.1" + name + "Content-Length: 1\r\nContent-Length: 2\r\n", "400"},
        {"POST /login HTTP/1.1" + name + "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n", "411"},
        {"POST /login HTTP/1.1" + name + "Content-Length: 4097\r\n", "413"},
        {"POST /login HTTP/1.1" + name + "Content-Length: 9\r\nContent-Type: text/plain\r\n", "415"},
        {"GET /" + x + " HTTP/1.1" + name, "414"},
        {"GET / HTTP/1.1" + name + "X: " + x + "\r\n", "431"},
        {"GET / HTTP/1.1" + name + "X: " + x + x + x + "\r\n", "431"}};
    for (const auto& [request, status] : cases) {
        const UniqueFd client = Connect();
        Send(client, request + (status[0] == '2' ? "Connection: close\r\n\r\n" : "\r\n"));
        const std::string reply = Rest(client);
        EXPECT_EQ(StatusOf(reply), status) << request;
        EXPECT_EQ(reply.find("(still open)"), std::string::npos) << request;
    }
    EXPECT_EQ(BodyOf(Ask("GET /a?q=%2Bb+c")), "a+b c\n");
    for (const char* header : {"X-Content-Type-Options", "Content-Security-Policy", "Referrer-Policy"})
        EXPECT_NE(Header(Ask("GET /"), header), "");
    EXPECT_EQ(StatusOf(Ask("GET /injected")), "500");
    EXPECT_EQ(StatusOf(Ask("GET /thrown")), "503");
    EXPECT_EQ(StatusOf(Ask("GET /dropped")), "503");
}

TEST_F(ServerTest, PartsOfAFile) {
    const std::string bytes = "0123456789";
    Write("file", bytes);
    Start();
    const std::string whole = Ask("GET /file"), etag = Header(whole, "ETag"),
                      date = Header(whole, "Last-Modified");
    EXPECT_EQ(StatusOf(whole) + BodyOf(whole), "200" + bytes);
    EXPECT_TRUE(Header(whole, "Content-Security-Policy").starts_with("sandbox;"));
    const auto told = [this](const std::string& headers, const char* method = "GET") {
        const std::string reply = Ask(std::string(method) + " /file", headers);
        return StatusOf(reply) + ' ' + Header(reply, "Content-Range") + '|' + BodyOf(reply);
    };
    EXPECT_EQ(told("Range: bytes=2-4\r\n"), "206 bytes 2-4/10|234");
    EXPECT_EQ(told("Range: bytes=-4\r\nIf-Range: " + etag + "\r\n"), "206 bytes 6-9/10|6789");
    EXPECT_EQ(told("Range: bytes=2-4\r\nIf-Range: " + date + "\r\n"), "206 bytes 2-4/10|234");
    EXPECT_EQ(told("Range: bytes=2-4\r\nIf-Range: \"other\"\r\n"), "200 |" + bytes);
    EXPECT_EQ(told("Range: bytes=10-\r\n"), "416 bytes */10|");
    EXPECT_EQ(told("Range: bytes=2-4\r\n", "HEAD"), "200 |");
    EXPECT_EQ(Header(Ask("HEAD /file"), "Content-Length"), "10");
    EXPECT_EQ(told("If-None-Match: W/" + etag + "\r\n"), "304 |");
    EXPECT_EQ(told("If-None-Match: \"x\"\r\nIf-Modified-Since: " + date + "\r\n"), "200 |" + bytes);
    EXPECT_EQ(told("If-Modified-Since: " + date + "\r\n"), "304 |");
    Write("file", "");
    EXPECT_EQ(told("Range: bytes=0-\r\n"), "416 bytes */0|");
    ASSERT_EQ(remove(Path("file").c_str()) + mkfifo(Path("file").c_str(), 0600), 0);
    const UniqueFd writer(open(Path("file").c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_EQ(told(""), "404 |");
}

TEST_F(ServerTest, AFileThatShrinksEndsTheConnection) {
    Write("file", std::string(64 << 20, 'x'));
    Start();
    const UniqueFd client = Connect();
    Send(client, "GET /file HTTP/1.1\r\nHost: " + host_ + "\r\n\r\n");
    char first[16];
    ASSERT_EQ(recv(client.get(), first, sizeof first, MSG_WAITALL), 16);
    ASSERT_EQ(truncate(Path("file").c_str(), 1000), 0);
    const std::string rest = Rest(client);
    EXPECT_LT(rest.size(), 64U << 20);
    EXPECT_FALSE(rest.ends_with("(still open)"));
}

TEST_F(ServerTest, ALaterAnswerHoldsUpNobodyAndTheEndDoesNotWaitForIt) {
    Start();
    std::vector<UniqueFd> clients;
    for (int i = 0; i < 9; ++i) {  // more than there are threads
        clients.push_back(Connect());
        Send(clients.back(), "GET /later HTTP/1.1\r\nHost: " + host_ + "\r\nConnection: close\r\n\r\n");
    }
    while (count() < clients.size())
        EXPECT_EQ(StatusOf(Ask("GET /")), "200");
    later_[0].Answer(PlainReply(200, "now"));
    later_[0].Answer(PlainReply(200, "twice"));
    std::string answers;
    server_.Stop();
    for (const UniqueFd& client : clients)
        answers += BodyOf(Rest(client) + "\r\n\r\n").substr(0, 4);
    EXPECT_EQ(answers.find("twic"), std::string::npos);
    later_[1].Answer(PlainReply(200, "too late"));
}

TEST_F(ServerTest, WhoTakesTooLongIsEnded) {
    Start("", {.connections = 8, .request = milliseconds(300), .further = milliseconds(300)});
    const UniqueFd slow = Connect(), kept = Connect();
    Send(kept, "GET / HTTP/1.1\r\nHost: " + host_ + "\r\n\r\n");
    char byte;
    Send(slow, "GET / HTTP/1.1\r\n");
    while (recv(slow.get(), &byte, 1, MSG_DONTWAIT) != 0) {
        Send(slow, "X");
        usleep(10000);
    }
    EXPECT_EQ(StatusOf(Rest(kept)), "200");
}

TEST_F(ServerTest, TheOneThatHasWaitedLongestGivesWay) {
    Start("", {.connections = 8, .request = std::chrono::hours(1), .further = std::chrono::hours(1)});
    std::vector<UniqueFd> idle;
    const UniqueFd answered = Connect();
    Send(answered, "GET /later HTTP/1.1\r\nHost: " + host_ + "\r\nConnection: close\r\n\r\n");
    while (count() == 0)
        usleep(1000);
    for (int i = 0; i < 40; ++i)
        idle.push_back(Connect());
    EXPECT_EQ(StatusOf(Ask("GET /")), "200");
    EXPECT_EQ(Rest(idle.front()), "");
    const std::lock_guard lock(mutex_);
    later_[0].Answer(PlainReply(200, "still here"));
    EXPECT_EQ(BodyOf(Rest(answered)), "still here\n");
}

TEST_F(ServerTest, TheTokenIsGivenForACookie) {
    std::string error;
    const std::string token = TokenFrom(Path("state/token"), &error);
    ASSERT_EQ(token.size(), 32U) << error;
    EXPECT_EQ(TokenFrom(Path("state/token"), &error), token);
    Start(token);
    const std::string asked = Ask("GET /film?q=1");
    EXPECT_EQ(StatusOf(asked) + BodyOf(asked), "401form for /film?q=1\n");
    EXPECT_EQ(StatusOf(Ask("GET /assets/a.css")), "200");
    EXPECT_EQ(StatusOf(Post("/login", "token=" + token.substr(1))), "401");
    EXPECT_EQ(StatusOf(Post("/login", "token=" + token, "Sec-Fetch-Site: cross-site\r\n")), "403");
    EXPECT_EQ(Header(Post("/login", "token=" + token + "&next=//evil.example"), "Location"), "/");
    const std::string in = Post("/login", "next=%2Ffilm%3Fq%3D1&token=" + token);
    EXPECT_EQ(StatusOf(in) + Header(in, "Location"), "303/film?q=1");
    const std::string cookie = Header(in, "Set-Cookie");
    EXPECT_NE(cookie.find("; HttpOnly; SameSite=Lax"), std::string::npos);
    const std::string header = "Cookie: " + cookie.substr(0, cookie.find(';')) + "\r\n";
    EXPECT_EQ(StatusOf(Ask("GET /", header)), "200");
    EXPECT_EQ(StatusOf(Ask("GET /", header.substr(0, header.size() - 4) + "zz\r\n")), "401");
    server_.Stop();
    EXPECT_EQ(std::filesystem::status(Path("sessions")).permissions(), std::filesystem::perms(0600));
    Start(token);
    std::string again = header;  // of another port: it has the name of that
    again.replace(again.find('_') + 1, again.find('=') - again.find('_') - 1,
                  host_.substr(host_.find(':') + 1));
    EXPECT_EQ(StatusOf(Ask("GET /", again)), "200");
    EXPECT_EQ(StatusOf(Post("/logout", "", again)), "303");
    EXPECT_EQ(StatusOf(Ask("GET /", again)), "401");
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(StatusOf(Post("/login", "token=")), "401");
    EXPECT_EQ(StatusOf(Post("/login", "token=" + token)), "429");
}

TEST_F(ServerTest, ATokenThatOthersMayReadIsNone) {
    std::string error;
    const std::string path = Write("token", "0123456789abcdef\n");
    chmod(path.c_str(), 0640);
    EXPECT_EQ(TokenFrom(path, &error), "");
    EXPECT_NE(error.find("chmod 600"), std::string::npos);
    chmod(path.c_str(), 0600);
    EXPECT_EQ(TokenFrom(path, &error), "0123456789abcdef");
    ASSERT_EQ(symlink(path.c_str(), Path("link").c_str()), 0);
    EXPECT_EQ(TokenFrom(Path("link"), &error), "");
    Write("token", "short\n");
    EXPECT_EQ(TokenFrom(path, &error), "");
    std::filesystem::resize_file(path, (uintmax_t{1} << 32) + 6);
    EXPECT_EQ(TokenFrom(path, &error) + error, path + ": it is too long");
    for (const char* address :
         {"", "8080", ":8080", "localhost", "127.0.0.1:65536", "127.0.0.1:+1", "[::1:80", "host:80"})
        EXPECT_FALSE(ListenOn(address, &error).valid()) << address;
}

}  // namespace
}  // namespace koli::serve
