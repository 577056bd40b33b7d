// The syslog parser and TCP framer on the RFC examples and on lines real devices send.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "logd/syslog/message_text.h"
#include "logd/syslog/syslog_parser.h"
#include "logd/syslog/tcp_framer.h"
#include "tests/support/temp_root.h"

namespace {

using logd::LogEntry;
using logd::syslog::CivilToEpoch;
using logd::syslog::ParseContext;
using logd::syslog::SyslogFormat;
using logd::syslog::TcpFramer;
using logd::syslog::TimeZoneSetting;

const int64_t kNow = CivilToEpoch(2026, 11, 23, 10, 30, 0);

struct Parsed {
  SyslogFormat format;
  LogEntry entry;
};

Parsed Parse(std::string_view raw, int64_t now = kNow, const char* zone = "UTC", bool cut = false) {
  TimeZoneSetting tz;
  EXPECT_TRUE(tz.Set(zone));
  ParseContext context{"192.0.2.7", now, &tz};
  Parsed p;
  p.format = logd::syslog::ParseSyslogMessage(raw, cut, context, &p.entry);
  return p;
}

TEST(SyslogParser, Rfc5424Examples) {
  // The BOM before the message is dropped; MSGID stays in the text.
  Parsed p = Parse(
      "<34>1 2003-10-11T22:14:15.003Z mymachine.example.com su - ID47 - \xEF\xBB\xBF'su root' "
      "failed for lonvick on /dev/pts/8");
  EXPECT_EQ(SyslogFormat::kRfc5424, p.format);
  EXPECT_EQ(CivilToEpoch(2003, 10, 11, 22, 14, 15), p.entry.time);
  EXPECT_EQ(3, p.entry.level);  // crit
  EXPECT_EQ("mymachine.example.com su: ID47 'su root' failed for lonvick on /dev/pts/8",
            p.entry.message);
  EXPECT_EQ("SYSTEM", p.entry.user);
  EXPECT_EQ(logd::Store::kSystem, p.entry.store);

  p = Parse(
      "<165>1 2003-08-24T05:14:15.000003-07:00 192.0.2.1 myproc 8710 - - %% It's time to "
      "make the do-nuts.");
  EXPECT_EQ(CivilToEpoch(2003, 8, 24, 12, 14, 15), p.entry.time);
  EXPECT_EQ(1, p.entry.level);  // notice
  EXPECT_EQ("192.0.2.1 myproc[8710]: %% It's time to make the do-nuts.", p.entry.message);

  // Structured data stays in the text, escaped brackets and quotes included.
  p = Parse(
      "<165>1 2003-10-11T22:14:15.003Z mymachine.example.com evntslog - ID47 "
      "[exampleSDID@32473 iut=\"3\" eventSource=\"Application\" eventID=\"1011\"]"
      "[examplePriority@32473 class=\"h\\]i\\\"gh\"]");
  EXPECT_EQ(SyslogFormat::kRfc5424, p.format);
  EXPECT_EQ(
      "mymachine.example.com evntslog: ID47 [exampleSDID@32473 iut=\"3\" "
      "eventSource=\"Application\" eventID=\"1011\"][examplePriority@32473 "
      "class=\"h\\]i\\\"gh\"]",
      p.entry.message);

  // Nil timestamp and host: receive time and the sender's address.
  p = Parse("<12>1 - - app 77 - - disk almost full");
  EXPECT_EQ(SyslogFormat::kRfc5424, p.format);
  EXPECT_EQ(kNow, p.entry.time);
  EXPECT_EQ(2, p.entry.level);
  EXPECT_EQ("192.0.2.7 app[77]: disk almost full", p.entry.message);

  // Juniper and NXLog (a Windows agent) in RFC 5424.
  p = Parse(
      "<165>1 2026-11-23T10:00:00.123+01:00 srx1 RT_FLOW - RT_FLOW_SESSION_CREATE "
      "[junos@2636.1.1.1.2.26 source-address=\"10.0.0.1\"] session created");
  EXPECT_EQ(CivilToEpoch(2026, 11, 23, 9, 0, 0), p.entry.time);
  EXPECT_EQ(
      "srx1 RT_FLOW: RT_FLOW_SESSION_CREATE [junos@2636.1.1.1.2.26 "
      "source-address=\"10.0.0.1\"] session created",
      p.entry.message);
  p = Parse(
      "<14>1 2026-11-23T10:00:00.000000+01:00 WINSRV01 Microsoft-Windows-Security-Auditing "
      "4 - [NXLOG@14506 EventReceivedTime=\"2026-11-23 10:00:01\"] An account was "
      "successfully logged on.");
  EXPECT_EQ(
      "WINSRV01 Microsoft-Windows-Security-Auditing[4]: [NXLOG@14506 "
      "EventReceivedTime=\"2026-11-23 10:00:01\"] An account was successfully logged on.",
      p.entry.message);

  // Unterminated structured data is kept as message text, not lost.
  p = Parse("<14>1 2026-11-23T10:00:00Z h a - - [sd x=\"1\" no end");
  EXPECT_EQ("h a: [sd x=\"1\" no end", p.entry.message);
}

TEST(SyslogParser, Rfc3164AndItsDeviations) {
  Parsed p = Parse("<34>Oct 11 22:14:15 mymachine su: 'su root' failed for lonvick on /dev/pts/8");
  EXPECT_EQ(SyslogFormat::kRfc3164, p.format);
  EXPECT_EQ(CivilToEpoch(2026, 10, 11, 22, 14, 15), p.entry.time);
  EXPECT_EQ(3, p.entry.level);
  EXPECT_EQ("mymachine su: 'su root' failed for lonvick on /dev/pts/8", p.entry.message);

  // No year: in late November, February is nearer next year.
  p = Parse("<13>Feb  5 17:32:18 10.0.0.99 Use the BFG!");
  EXPECT_EQ(CivilToEpoch(2027, 2, 5, 17, 32, 18), p.entry.time);
  EXPECT_EQ("10.0.0.99 Use the BFG!", p.entry.message);

  // A zone name and a year after the time.
  p = Parse(
      "<165>Aug 24 05:34:00 UTC 1987 mymachine myproc[10]: %% It's time to make the "
      "do-nuts.");
  EXPECT_EQ(CivilToEpoch(1987, 8, 24, 5, 34, 0), p.entry.time);
  EXPECT_EQ("mymachine myproc[10]: %% It's time to make the do-nuts.", p.entry.message);

  // Missing PRI: notice, information level.
  p = Parse("Nov 23 10:00:00 web01 cron[42]: job done");
  EXPECT_EQ(SyslogFormat::kRfc3164, p.format);
  EXPECT_EQ(1, p.entry.level);
  EXPECT_EQ("web01 cron[42]: job done", p.entry.message);

  // Missing host (busybox, local senders): the sender's address stands in.
  p = Parse("<13>Nov 23 10:00:00 root: hello from busybox");
  EXPECT_EQ("192.0.2.7 root: hello from busybox", p.entry.message);
  p = Parse("<11>Nov 23 10:00:00 kernel[0]: oops");
  EXPECT_EQ("192.0.2.7 kernel[0]: oops", p.entry.message);

  // No timestamp after the PRI: receive time, the rest is content.
  p = Parse("<13>sshd[9]: Accepted publickey");
  EXPECT_EQ(kNow, p.entry.time);
  EXPECT_EQ("192.0.2.7 sshd[9]: Accepted publickey", p.entry.message);

  // ISO timestamps (rsyslog's forwarding format), with and without an offset.
  p = Parse("<30>2026-11-23T10:00:00.123456+01:00 web01 systemd[1]: Started Session 5.");
  EXPECT_EQ(SyslogFormat::kRfc3164, p.format);
  EXPECT_EQ(CivilToEpoch(2026, 11, 23, 9, 0, 0), p.entry.time);
  EXPECT_EQ("web01 systemd[1]: Started Session 5.", p.entry.message);
  p = Parse("<30>2026-11-23T10:00:00 web01 app: x", kNow, "+02:00");
  EXPECT_EQ(CivilToEpoch(2026, 11, 23, 8, 0, 0), p.entry.time);

  // Cisco IOS: sequence number, '*' for an unsynchronised clock, colon after the time, no host.
  p = Parse("<189>52: *Mar  1 00:03:06.123: %SYS-5-CONFIG_I: Configured from console by vty0");
  EXPECT_EQ(CivilToEpoch(2027, 3, 1, 0, 3, 6), p.entry.time);
  EXPECT_EQ(1, p.entry.level);
  EXPECT_EQ("192.0.2.7 %SYS-5-CONFIG_I: Configured from console by vty0", p.entry.message);
  p = Parse(
      "<187>Nov 23 10:00:01 switch01 2345: Nov 23 10:00:00.123 UTC: %LINK-3-UPDOWN: "
      "Interface Gi0/1, changed state to down");
  EXPECT_EQ(3, p.entry.level);
  EXPECT_EQ(
      "switch01 2345: Nov 23 10:00:00.123 UTC: %LINK-3-UPDOWN: Interface Gi0/1, changed "
      "state to down",
      p.entry.message);

  // Juniper, and Snare (a Windows agent) with tabs after its name.
  p = Parse("<28>Nov 23 10:00:00 mx480-re0 mib2d[1849]: SNMP_TRAP_LINK_DOWN: ifIndex 526");
  EXPECT_EQ(2, p.entry.level);
  EXPECT_EQ("mx480-re0 mib2d[1849]: SNMP_TRAP_LINK_DOWN: ifIndex 526", p.entry.message);
  p = Parse("<14>Nov 23 10:00:00 WINSRV01 MSWinEventLog\t1\tSecurity\t4624\tlogon");
  EXPECT_EQ("WINSRV01 MSWinEventLog\t1\tSecurity\t4624\tlogon", p.entry.message);

  // Year inference: the year that puts the time nearest to now.
  const int64_t new_year = CivilToEpoch(2026, 1, 1, 0, 5, 0);
  EXPECT_EQ(CivilToEpoch(2025, 12, 31, 23, 59, 0),
            Parse("<13>Dec 31 23:59:00 h a: x", new_year).entry.time);
  const int64_t year_end = CivilToEpoch(2026, 12, 31, 23, 55, 0);
  EXPECT_EQ(CivilToEpoch(2027, 1, 1, 0, 1, 0),
            Parse("<13>Jan  1 00:01:00 h a: x", year_end).entry.time);

  // Time zones by the setting: a fixed offset, and the daemon's zone.
  EXPECT_EQ(CivilToEpoch(2026, 11, 23, 10, 0, 0),
            Parse("<13>Nov 23 12:00:00 h a: x", kNow, "+02:00").entry.time);
  ScopedTimeZone berlin("Europe/Berlin");
  EXPECT_EQ(CivilToEpoch(2026, 11, 23, 11, 0, 0),
            Parse("<13>Nov 23 12:00:00 h a: x", kNow, "local").entry.time);
  EXPECT_EQ(CivilToEpoch(2026, 7, 1, 10, 0, 0),  // summer time
            Parse("<13>Jul  1 12:00:00 h a: x", kNow, "local").entry.time);
  TimeZoneSetting bad;
  EXPECT_FALSE(bad.Set("Mars/Olympus"));
  EXPECT_FALSE(bad.Set("+25:00"));
}

TEST(SyslogParser, AnythingElseIsKeptWholeAndBounded) {
  Parsed p = Parse("Use the BFG!");
  EXPECT_EQ(SyslogFormat::kUnknown, p.format);
  EXPECT_EQ(kNow, p.entry.time);
  EXPECT_EQ(1, p.entry.level);
  EXPECT_EQ("192.0.2.7 Use the BFG!", p.entry.message);
  EXPECT_EQ("192.0.2.7 <999>bad pri", Parse("<999>bad pri").entry.message);
  EXPECT_EQ("192.0.2.7", Parse("").entry.message);

  // Invalid UTF-8 and NUL are replaced, valid multi-byte text is kept.
  p = Parse(
      std::string("<13>Nov 23 10:00:00 h a: gr\xC3\xBC\xC3\x9F \xFF\xC3 x\0y\xED\xA0\x80", 41));
  EXPECT_EQ(
      "h a: gr\xC3\xBC\xC3\x9F \xEF\xBF\xBD\xEF\xBF\xBD x\xEF\xBF\xBDy"
      "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD",
      p.entry.message);
  // The same inside long runs of ASCII, which are checked eight bytes at a time.
  EXPECT_EQ(
      "h a: abcdefghij\xEF\xBF\xBDklmnopq\xEF\xBF\xBDrstuvwxyz\x01"
      "234567",
      Parse(std::string("<13>Nov 23 10:00:00 h a: abcdefghij\0klmnopq\xFFrstuvwxyz\x01"
                        "234567",
                        60))
          .entry.message);

  // Over 64 KiB: cut on a character boundary and marked; so is a frame the transport cut.
  std::string big = "<13>Nov 23 10:00:00 h a: " + std::string(70000, 'x');
  // A two-byte character across the limit (the message starts after the 20-byte header).
  const size_t keep = logd::syslog::kMaxMessageBytes - logd::syslog::kCutMark.size();
  big.replace(20 + keep - 1, 2, "\xC3\xBC");
  p = Parse(big);
  EXPECT_EQ(logd::syslog::kMaxMessageBytes - 1, p.entry.message.size());
  EXPECT_EQ(logd::syslog::kCutMark, p.entry.message.substr(p.entry.message.size() - 6));
  EXPECT_EQ(std::string("h a: short") + std::string(logd::syslog::kCutMark),
            Parse("<13>Nov 23 10:00:00 h a: short", kNow, "UTC", true).entry.message);
}

struct Frames {
  std::vector<std::pair<std::string, bool>> got;
  TcpFramer::FrameHandler Handler() {
    return [this](std::string_view f, bool cut) { got.emplace_back(std::string(f), cut); };
  }
};

TEST(SyslogFramer, BothFramingsInPiecesOfAnySize) {
  const std::string counted = "11 <13>first a10 <13>sec\nnd3 abc0 ";
  using namespace std::string_literals;
  const std::string lines = "<13>first\r\n\n<13>second\0<13>third"s;
  for (size_t piece : {1, 2, 3, 7, 1000}) {
    Frames f;
    TcpFramer framer(64);
    for (size_t i = 0; i < counted.size(); i += piece)
      framer.Feed(counted.substr(i, piece), f.Handler());
    EXPECT_EQ(TcpFramer::Framing::kOctetCounting, framer.framing());
    framer.Finish(f.Handler());
    ASSERT_EQ(3u, f.got.size()) << piece;
    EXPECT_EQ("<13>first a", f.got[0].first);
    EXPECT_EQ("<13>sec\nnd", f.got[1].first);  // a line end inside a counted frame is content
    EXPECT_EQ("abc", f.got[2].first);

    Frames g;
    TcpFramer line_framer(64);
    const std::string_view all(lines);
    for (size_t i = 0; i < all.size(); i += piece)
      line_framer.Feed(all.substr(i, piece), g.Handler());
    EXPECT_EQ(TcpFramer::Framing::kLineFeed, line_framer.framing());
    line_framer.Finish(g.Handler());  // the last line has no line end
    ASSERT_EQ(3u, g.got.size()) << piece;
    EXPECT_EQ("<13>first", g.got[0].first);
    EXPECT_EQ("<13>second", g.got[1].first);
    EXPECT_EQ("<13>third", g.got[2].first);
  }
}

TEST(SyslogFramer, LongFramesAreCutAndBadCountsFallBackToLines) {
  Frames f;
  TcpFramer framer(4);
  framer.Feed("10 0123456789", f.Handler());
  framer.Feed("3 ab", f.Handler());
  framer.Feed("c", f.Handler());
  ASSERT_EQ(2u, f.got.size());
  EXPECT_EQ(std::make_pair(std::string("0123"), true), f.got[0]);
  EXPECT_EQ(std::make_pair(std::string("abc"), false), f.got[1]);
  // A counted frame cut short by the end of the stream is delivered as cut.
  framer.Feed("9 xy", f.Handler());
  framer.Finish(f.Handler());
  EXPECT_EQ(std::make_pair(std::string("xy"), true), f.got[2]);

  // A line that starts with digits is not lost when it turns out not to be an octet count.
  Frames g;
  TcpFramer lines(100);
  lines.Feed("2026-11-23 boot\nnext\n", g.Handler());
  EXPECT_EQ(TcpFramer::Framing::kLineFeed, lines.framing());
  ASSERT_EQ(2u, g.got.size());
  EXPECT_EQ("2026-11-23 boot", g.got[0].first);
  // Long lines are cut once, the rest of the line skipped.
  Frames h;
  TcpFramer small(3);
  small.Feed("<abcdef", h.Handler());
  small.Feed("gh\n<x\n", h.Handler());
  ASSERT_EQ(2u, h.got.size());
  EXPECT_EQ(std::make_pair(std::string("<ab"), true), h.got[0]);
  EXPECT_EQ(std::make_pair(std::string("<x"), false), h.got[1]);
}

}  // namespace
