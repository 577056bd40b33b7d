// The server's users file and its shared sessions database, in-process on a temporary root.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "server/auth/session_store.h"
#include "server/auth/users_file.h"
#include "tests/support/temp_root.h"

namespace {}  // namespace

TEST(ServerAuth, UsersFileStoresArgon2idHashesAndReplacesUsers) {
  TempRoot root;
  std::string path = UsersFilePath();
  EXPECT_EQ(root.path() + "/etc/quor-webapi/users", path);
  bool replaced = true;
  std::string error;
  ASSERT_TRUE(StoreUser(path, "admin", "s3cret: with colon", true, "de", &replaced, &error))
      << error;
  EXPECT_FALSE(replaced);
  ASSERT_TRUE(StoreUser(path, "op", "pw", false, "en", &replaced, &error)) << error;
  struct stat info;
  ASSERT_EQ(0, stat(path.c_str(), &info));
  EXPECT_EQ(0600u, info.st_mode & 0777);

  UserRecord admin;
  ASSERT_TRUE(FindUser(path, "admin", &admin));
  EXPECT_EQ(0u, admin.hash.find("$argon2id$"));
  EXPECT_TRUE(admin.admin);
  EXPECT_EQ("de", admin.lang);
  EXPECT_TRUE(VerifyPassword(&admin, "s3cret: with colon"));
  EXPECT_FALSE(VerifyPassword(&admin, "s3cret"));
  EXPECT_FALSE(VerifyPassword(nullptr, "s3cret: with colon"));

  // Replacing keeps one line per user and the other users as they were.
  ASSERT_TRUE(StoreUser(path, "admin", "new", false, "en", &replaced, &error)) << error;
  EXPECT_TRUE(replaced);
  ASSERT_TRUE(FindUser(path, "admin", &admin));
  EXPECT_FALSE(admin.admin);
  EXPECT_TRUE(VerifyPassword(&admin, "new"));
  UserRecord op;
  ASSERT_TRUE(FindUser(path, "op", &op));
  EXPECT_TRUE(VerifyPassword(&op, "pw"));

  // Damaged lines are skipped, not taken for users.
  std::ofstream(path, std::ios::app) << "broken line\nx:y:root:en\n:h:admin:en\n";
  UserRecord none;
  EXPECT_FALSE(FindUser(path, "x", &none));
  EXPECT_FALSE(FindUser(path, "", &none));
  EXPECT_FALSE(FindUser(path, "nobody", &none));
  EXPECT_TRUE(FindUser(path, "op", &none));

  for (const char* name : {"", "a b", "a:b", "ä", "../x"}) EXPECT_FALSE(IsValidUserName(name));
  EXPECT_TRUE(IsValidUserName("Admin_1.x-y"));
  EXPECT_FALSE(IsValidUserName(std::string(65, 'a')));
}

TEST(ServerAuth, SessionsAreSharedAndExpireWhenIdle) {
  TempRoot root;
  SessionLimits limits;
  limits.idleMs = 300;
  SessionStore worker1, worker2;
  ASSERT_TRUE(worker1.Open(SessionsDatabasePath(), limits)) << worker1.LastError();
  ASSERT_TRUE(worker2.Open(SessionsDatabasePath(), limits)) << worker2.LastError();

  Session created;
  created.user = "admin";
  created.lang = "de";
  created.admin = true;
  std::string cookie;
  ASSERT_TRUE(worker1.Create(&created, &cookie));
  EXPECT_EQ(64u, cookie.size());
  EXPECT_EQ(32u, created.token.size());

  // Another process's connection sees it; the database holds no usable cookie.
  Session seen;
  bool found = false;
  ASSERT_TRUE(worker2.Touch(cookie, &seen, &found));
  ASSERT_TRUE(found);
  EXPECT_EQ("admin", seen.user);
  EXPECT_EQ("de", seen.lang);
  EXPECT_TRUE(seen.admin);
  EXPECT_EQ(created.token, seen.token);
  std::ifstream database(SessionsDatabasePath(), std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(database)), std::istreambuf_iterator<char>());
  EXPECT_EQ(std::string::npos, bytes.find(cookie));

  std::string other = cookie;
  other[0] = other[0] == '0' ? '1' : '0';  // a cookie that differs in its first character
  ASSERT_TRUE(worker1.Touch(other, &seen, &found));
  EXPECT_FALSE(found);
  ASSERT_TRUE(worker1.Touch("", &seen, &found));
  EXPECT_FALSE(found);

  // Use keeps it alive past the idle time; idleness ends it.
  for (int i = 0; i < 3; ++i) {
    SleepMs(150);
    ASSERT_TRUE(worker1.Touch(cookie, &seen, &found));
    EXPECT_TRUE(found) << i;
  }
  SleepMs(400);
  ASSERT_TRUE(worker2.Touch(cookie, &seen, &found));
  EXPECT_FALSE(found);

  // An ended session is gone for every worker.
  ASSERT_TRUE(worker1.Create(&created, &cookie));
  ASSERT_TRUE(worker2.End(cookie));
  ASSERT_TRUE(worker1.Touch(cookie, &seen, &found));
  EXPECT_FALSE(found);
}

TEST(ServerAuth, FailedLoginsAddUpAcrossWorkersAndArePruned) {
  TempRoot root;
  SessionLimits limits;
  limits.failureWindowMs = 2000;
  limits.lockoutMs = 400;
  SessionStore worker1, worker2;
  ASSERT_TRUE(worker1.Open(SessionsDatabasePath(), limits));
  ASSERT_TRUE(worker2.Open(SessionsDatabasePath(), limits));
  bool locked = true;

  // Failures of one pair spread over two workers add up (pairs and the address ceiling are
  // tried on a real server in ServerHttp).
  for (int i = 0; i < 5; ++i)
    ASSERT_TRUE((i % 2 ? worker1 : worker2).RecordFailure("admin", "10.0.0.1"));
  ASSERT_TRUE(worker1.IsLockedOut("admin", "10.0.0.1", &locked));
  EXPECT_TRUE(locked);

  // Lockouts end and are pruned; a successful login forgets the pair's earlier failures.
  SleepMs(500);
  ASSERT_TRUE(worker1.IsLockedOut("admin", "10.0.0.1", &locked));
  EXPECT_FALSE(locked);
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(worker1.RecordFailure("op", "10.2.0.1"));
  ASSERT_TRUE(worker1.ClearFailures("op", "10.2.0.1"));
  ASSERT_TRUE(worker1.RecordFailure("op", "10.2.0.1"));
  ASSERT_TRUE(worker1.IsLockedOut("op", "10.2.0.1", &locked));
  EXPECT_FALSE(locked);
  EXPECT_EQ(std::vector<std::string>{"0"},
            QueryRows(SessionsDatabasePath(), "SELECT count(*) FROM lockouts"));

  // The database holds live tokens: the server's alone.
  struct stat st;
  ASSERT_EQ(0, stat(SessionsDatabasePath().c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 0777);
  ASSERT_EQ(0, stat((SessionsDatabasePath() + "-wal").c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 0777);
  std::string folder = SessionsDatabasePath().substr(0, SessionsDatabasePath().rfind('/'));
  ASSERT_EQ(0, stat(folder.c_str(), &st));
  EXPECT_EQ(0700u, st.st_mode & 0777);
}
