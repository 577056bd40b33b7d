// The web server's sign-ins in the connection log, through the real server: rows in the log's
// own phrasing, a busy store that costs the row and not the sign-in, and a lockout that holds
// exactly under concurrent tries.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <memory>
#include <thread>

#include "platform/webapi.h"
#include "tests/support/server_process.h"
#include "tests/support/temp_root.h"
#include "tools/lib/log_schemas.h"

namespace {

int LoginError(int port, const std::string& account, const std::string& password) {
  HttpAnswer answer = HttpRequest(port, "POST", "/webapi/auth",
                                  "method=login&account=" + account + "&passwd=" + password);
  Json::Value envelope = QUOR::WebAPIUtil::ParseJson(answer.body);
  return envelope["success"].asBool() ? 0 : envelope["error"]["code"].asInt();
}

class ServerSignInLog : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(AddUser(root_.path(), "admin", "admin-pw", true));
    store_ = root_.At("/var/log/quorlog/.QUORCONNDB");
    MakeDatabase(store_, QUOR_SYSTEM_LOG_SCHEMA);
    server_ = std::make_unique<ServerProcess>(
        root_.path(), std::vector<std::string>{"--workers", "3", "--log-stderr"});
    ASSERT_TRUE(server_->started());
  }

  std::vector<std::string> Rows() {
    return QueryRows(store_, "SELECT level, username, msg FROM logs ORDER BY id");
  }

  TempRoot root_;
  std::string store_;
  std::unique_ptr<ServerProcess> server_;
};

}  // namespace

TEST_F(ServerSignInLog, SignInsSignOutsAndFailuresBecomeRows) {
  int port = server_->port();
  WebApiClient client(port);
  ASSERT_TRUE(client.Login("admin", "admin-pw")["success"].asBool());
  ASSERT_TRUE(client.Auth("method=logout")["success"].asBool());
  EXPECT_EQ(150, LoginError(port, "admin", "wrong"));
  EXPECT_EQ(150, LoginError(port, "nobody", "wrong"));
  std::vector<std::string> expected = {
      "info|admin|User [admin] signed in from [127.0.0.1] via [Web].",
      "info|admin|User [admin] signed out from [127.0.0.1] via [Web].",
      "warning|admin|User [admin] failed to sign in from [127.0.0.1]: wrong password.",
      "warning|nobody|User [nobody] failed to sign in from [127.0.0.1]: wrong password.",
  };
  EXPECT_EQ(expected, Rows());

  // A store held by another process costs the row, reported in the system log, never the
  // sign-in.
  sqlite3* holder = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(store_.c_str(), &holder));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(holder, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr));
  WebApiClient busy(port);
  EXPECT_TRUE(busy.Login("admin", "admin-pw")["success"].asBool());
  sqlite3_exec(holder, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close(holder);
  EXPECT_TRUE(server_->LogHas("connection log: cannot write")) << server_->Log();
  EXPECT_EQ(expected.size(), Rows().size());
}

// 30 wrong tries at once on one account from one address: exactly the limit (5) of passwords
// are checked; every other try is told the account is locked, and the log says so once.
TEST_F(ServerSignInLog, ConcurrentWrongTriesCheckExactlyTheLimit) {
  std::atomic<int> checked{0}, locked{0};
  std::vector<std::thread> tries;
  for (int i = 0; i < 30; ++i) {
    tries.emplace_back([&] {
      int code = LoginError(server_->port(), "admin", "wrong");
      if (code == 150) ++checked;
      if (code == 151) ++locked;
    });
  }
  for (std::thread& t : tries) t.join();
  EXPECT_EQ(5, checked.load());
  EXPECT_EQ(25, locked.load());
  EXPECT_EQ(151, LoginError(server_->port(), "admin", "admin-pw"));
  EXPECT_EQ(std::vector<std::string>{"5"},
            QueryRows(store_, "SELECT count(*) FROM logs WHERE msg LIKE '%wrong password.'"));
  EXPECT_EQ(std::vector<std::string>{"err|admin|User [admin] was blocked from [127.0.0.1] after 5 "
                                     "failed sign-ins."},
            QueryRows(store_, "SELECT level, username, msg FROM logs WHERE level = 'err'"));
}
