// How the HTTP service answers: JSON bodies, gzipped as they are written
// for a client that takes gzip, errors by category, tables in the compact
// form, and a pooled session per request. Shared by the service's routes.
#pragma once

#include <httplib.h>
#include <zlib.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "frame/context.h"
#include "mrp/model.h"
#include "record/error.h"
#include "record/json.h"
#include "record/variant.h"

namespace mrpcalc::http {

// Named with its charset, JSON is left alone by the library's own
// compression, whose brotli takes seconds a megabyte; answers are gzipped
// here instead (Answer).
constexpr const char* kJson = "application/json; charset=utf-8";

// The request a worker thread serves: its caller (the token's user), and
// whether it takes gzip.
extern thread_local int32_t request_user;
extern thread_local bool request_takes_gzip;

// Answers from this size on go gzipped to a client that takes gzip: a large
// report shrinks about tenfold, for a tenth of the time it took to make.
constexpr size_t kGzipFrom = 8 << 10;
constexpr int32_t kLargeReportRows = 5000;

// Text written in pieces, gzipped as it comes when the client takes gzip:
// a large answer is never held whole before it is compressed.
class AnswerBuffer {
 public:
  // `zip`: gzip it, when the client takes gzip.
  explicit AnswerBuffer(bool zip = true) : zip_(zip && request_takes_gzip) {
    if (zip_ && deflateInit2(&z_, 1, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
      throw Error(ErrorCategory::kInternal, "gzip could not start");
    }
  }
  ~AnswerBuffer() {
    if (zip_) deflateEnd(&z_);
  }
  AnswerBuffer(const AnswerBuffer&) = delete;
  AnswerBuffer& operator=(const AnswerBuffer&) = delete;

  void Append(std::string_view chunk) {
    if (!zip_) {
      out_.append(chunk);
      return;
    }
    Deflate(chunk, Z_NO_FLUSH);
  }
  // The answer, with its encoding.
  void Send(httplib::Response& res, int status = 200) {
    if (zip_) {
      Deflate("\n", Z_FINISH);
      res.set_header("Content-Encoding", "gzip");
      res.set_header("Vary", "Accept-Encoding");
    } else {
      out_.push_back('\n');
    }
    res.status = status;
    res.set_content(std::move(out_), kJson);
  }

 private:
  void Deflate(std::string_view chunk, int flush) {
    z_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(chunk.data()));
    z_.avail_in = static_cast<uInt>(chunk.size());
    do {
      char buf[1 << 16];
      z_.next_out = reinterpret_cast<Bytef*>(buf);
      z_.avail_out = sizeof buf;
      if (deflate(&z_, flush) == Z_STREAM_ERROR) throw Error(ErrorCategory::kInternal, "gzip failed");
      out_.append(buf, sizeof buf - z_.avail_out);
    } while (z_.avail_out == 0);
  }

  bool zip_;
  z_stream z_{};
  std::string out_;
};

void Answer(httplib::Response& res, int status, const std::string& body);
void Refuse(httplib::Response& res, int status, const std::string& why);
// What a caller is told of an error, and the log line of a failure.
std::string ErrorAnswerFor(const Error& e, int indent = 0);
void AnswerError(httplib::Response& res, const Error& e);
// The body as JSON, or a 400 answer.
bool ParseBody(const httplib::Request& req, httplib::Response& res, Json& body);

// A demand line as the compact answers name it: FTranType, FBillNo,
// FInterID, FEntryID, FItemID.
void DemandLineValues(JsonWriter& w, const mrp::DemandLine& d);
// A table in the compact form: {"columns": [...], "rows": [[...], ...]};
// rows not built yet are written from their source, never built.
void CompactRows(JsonWriter& w, const VectorPtr& rows);


// A session of the service's pool for the length of a block.
class PooledSession {
 public:
  PooledSession(ConnectionPool& pool, const std::string& dsn)
      : pool_(pool), dsn_(dsn), connection_(pool.Take(dsn)) {}
  ~PooledSession() { pool_.Give(dsn_, std::move(connection_)); }
  db::Connection& operator*() { return *connection_; }
  db::Connection* operator->() { return connection_.get(); }

 private:
  ConnectionPool& pool_;
  std::string dsn_;
  db::ConnectionPtr connection_;
};

}  // namespace mrpcalc::http
