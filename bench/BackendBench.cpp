// The backend client's heavy paths against their references: a 50 MB object fetched from a
// loopback HTTPS server (reference: the curl command fetching the same bytes), and an intake
// pass of a 1000-task body whose pictures are all on disk (reference: the same 1000 inserts
// through the SQLite API).
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>

#include "remote/Crc64.h"
#include "remote/HttpRequest.h"
#include "remote/ObjectStore.h"
#include "remote/RemoteOrderIdManger.h"
#include "store/Runtime.h"
#include "tests/support/HttpsServer.h"
#include "tests/support/TempDir.h"

namespace {

constexpr std::size_t kObjectSize = 50u << 20;

struct ObjectServer {
  ObjectServer() : bytes(kObjectSize, 'x'), crc(std::to_string(kps::crc64(0, bytes.data(), bytes.size()))) {
    server.routes().Get(R"(/.*)", [this](const httplib::Request&, httplib::Response& res) {
      res.set_header("x-oss-hash-crc64ecma", crc);  // the service checks it as it receives
      res.set_content(bytes, "image/jpeg");
    });
    origin = server.start();
  }
  std::string bytes;
  std::string crc;
  kps::HttpsServer server;
  std::string origin;
};

void BM_Download50MB(benchmark::State& state) {
  ObjectServer objects;
  kps::httpSettings().caBundle = kps::TestCertificates::get().caFile();
  kps::TempDir dir;
  const kps::OssSettings settings{objects.origin, "qzlp", "ak", "sk"};
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::remove(dir.file("big.jpg"));  // pictures are fetched only when missing
    state.ResumeTiming();
    kps::OssError error;
    if (!kps::fetchObjectToFile(settings, "pic/big.jpg", dir.file("big.jpg"), error))
      state.SkipWithError("download failed");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kObjectSize));
}

void BM_Download50MBWithCurlCommand(benchmark::State& state) {
  ObjectServer objects;
  kps::TempDir dir;
  const std::string command = "curl -s --cacert " + kps::TestCertificates::get().caFile() +
                              " -o " + dir.file("big.jpg") + " " + objects.origin + "/qzlp/pic/big.jpg";
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::remove(dir.file("big.jpg"));
    state.ResumeTiming();
    if (std::system(command.c_str()) != 0) state.SkipWithError("curl failed");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kObjectSize));
  state.SetLabel("reference");
}

std::string thousandTasks(kps::TempDir& dir) {
  std::string data;
  for (int i = 0; i < 1000; ++i) {
    const std::string id = std::to_string(i);
    dir.write("pics/" + id + ".jpg", "jpeg");
    data += std::string(data.empty() ? "" : ",") + "{\"taskId\":\"T-" + id + "\",\"pic\":\"pics/" + id +
            ".jpg\",\"businessOrderId\":\"O-" + id + "\",\"status\":0,\"number\":1,\"type\":\"postcards\"}";
  }
  return "{\"code\":\"100\",\"msg\":\"success\",\"data\":[" + data + "]}";
}

void BM_IntakePass1000Tasks(benchmark::State& state) {
  kps::TempDir dir;
  kps::WorkingDirectory cwd(dir.path());
  const std::string body = thousandTasks(dir);
  int round = 0;
  for (auto _ : state) {
    state.PauseTiming();
    const std::string file = "round-" + std::to_string(round++) + ".db";
    auto intake = std::make_unique<kps::RemoteOrderIdManger>(file);
    state.ResumeTiming();
    intake->ReceiveBackupData(body);
    state.PauseTiming();
    {
      std::lock_guard<std::mutex> lock(kps::newOrderMutex);
      kps::newOrderFlag = false;
    }
    intake.reset();
    std::filesystem::remove(dir.file(file));
    state.ResumeTiming();
  }
}

void BM_Raw1000Inserts(benchmark::State& state) {
  kps::TempDir dir;
  int round = 0;
  for (auto _ : state) {
    state.PauseTiming();
    const std::string file = dir.file("round-" + std::to_string(round++) + ".db");
    { kps::Database schema(file); }
    sqlite3* db = nullptr;
    sqlite3_open(file.c_str(), &db);
    sqlite3_busy_timeout(db, 5000);
    state.ResumeTiming();
    for (int i = 0; i < 1000; ++i) {
      const std::string id = std::to_string(i);
      const std::string uuid = "T-" + id, order = "O-" + id, path = dir.path() + "/pics/" + id + ".jpg";
      sqlite3_stmt* insert = nullptr;
      sqlite3_prepare_v2(db,
                         "INSERT INTO local (orderNo, uuid, path,status,realNumber,type) VALUES (?, "
                         "?, ?, ?,?,?);",
                         -1, &insert, nullptr);
      sqlite3_bind_text(insert, 1, order.c_str(), -1, SQLITE_STATIC);
      sqlite3_bind_text(insert, 2, uuid.c_str(), -1, SQLITE_STATIC);
      sqlite3_bind_text(insert, 3, path.c_str(), -1, SQLITE_STATIC);
      sqlite3_bind_int(insert, 4, 0);
      sqlite3_bind_int(insert, 5, 1);
      sqlite3_bind_text(insert, 6, "postcards", -1, SQLITE_STATIC);
      sqlite3_step(insert);
      sqlite3_finalize(insert);
    }
    state.PauseTiming();
    sqlite3_close(db);
    std::filesystem::remove(file);
    state.ResumeTiming();
  }
  state.SetLabel("reference");
}

}  // namespace

BENCHMARK(BM_Download50MB)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Download50MBWithCurlCommand)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_IntakePass1000Tasks)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Raw1000Inserts)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
