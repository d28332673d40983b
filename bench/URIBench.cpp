// URI parse + toString on a mixed corpus of realistic backup URIs: local
// drives ("file:///C:/..."), UNC shares in both file-URI forms, SMB with
// user information, HTTP(S) with ports and queries, IPv6 hosts, and names
// with spaces and non-ASCII characters in escaped form.
//
// The qo side parses each text into a CURI (scheme check, authority split,
// unescaping, query normalisation, lower-casing) and writes it back with
// toString(false). The baseline is a plain hand split with std::u16string:
// it finds the same delimiters, copies the same parts and joins them again,
// without checking, unescaping or escaping anything. It shows what the
// checks and the codec cost over bare copying. The whole corpus is one
// iteration; the items counter gives URIs per second.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "BenchMain.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"

namespace {

std::vector<qo::String> g_corpus;

char const* const kHosts[] = {"fileserver", "NAS-01", "backup.example.com", "10.0.0.12", "[fe80::1%25eth0]",
                              "[2001:db8::7]"};
char const* const kFolders[] = {"Documents", "Pictures", "Q4%20Reports", "caf%C3%A9", "Proje%CC%81ts", "2023",
                                "AppData", "%E6%97%A5%E6%9C%AC", "Archive%20(old)", "node_modules"};
char const* const kFiles[] = {"report.docx", "IMG_2041.JPG", "budget%202024.xlsx", "r%C3%A9sum%C3%A9.pdf",
                              "backup.vhdx", "notes.txt", "mail.pst", "%E2%82%AC-rates.csv"};

template <std::size_t N>
std::string pick(std::mt19937& rng, char const* const (&items)[N]) {
  return items[std::uniform_int_distribution<std::size_t>(0, N - 1)(rng)];
}

std::string folders(std::mt19937& rng) {
  std::string path;
  int depth = std::uniform_int_distribution<int>(1, 6)(rng);
  for (int i = 0; i < depth; ++i) path += "/" + pick(rng, kFolders);
  return path + "/" + pick(rng, kFiles);
}

void buildCorpus() {
  std::mt19937 rng(17);
  for (int i = 0; i < 1000; ++i) {
    std::string text;
    switch (i % 6) {
      case 0: text = "file:///" + std::string(1, static_cast<char>('C' + i % 4)) + ":" + folders(rng); break;
      case 1: text = "file://" + pick(rng, kHosts) + "/share" + folders(rng); break;
      case 2: text = "file:////fileserver/Backups" + folders(rng); break;
      case 3: text = "smb://DOMAIN%3Bbackup:s3cr%40t@" + pick(rng, kHosts) + ":445/share" + folders(rng); break;
      case 4:
        text = "https://" + pick(rng, kHosts) + ":8443/api/v2/files" + folders(rng) +
               "?version=" + std::to_string(i) + "&name=" + pick(rng, kFiles) + "#meta";
        break;
      default: text = "http://" + pick(rng, kHosts) + folders(rng) + "?q=a%26b"; break;
    }
    g_corpus.push_back(qo::String(text.c_str()));
  }
}

// The baseline: split at the same delimiters and join again, nothing else.
std::u16string handSplitAndJoin(std::u16string const& text) {
  std::size_t colon = text.find(u':');
  std::u16string scheme = text.substr(0, colon);
  std::size_t pos = colon + 1;
  std::size_t hash = text.find(u'#', pos);
  std::u16string fragment = hash == std::u16string::npos ? std::u16string() : text.substr(hash + 1);
  std::size_t end = hash == std::u16string::npos ? text.size() : hash;
  std::size_t question = text.find(u'?', pos);
  std::u16string query;
  if (question != std::u16string::npos && question < end) {
    query = text.substr(question + 1, end - question - 1);
    end = question;
  }
  std::u16string authority;
  if (text.compare(pos, 2, u"//") == 0) {
    std::size_t slash = text.find(u'/', pos + 2);
    if (slash == std::u16string::npos || slash > end) slash = end;
    authority = text.substr(pos + 2, slash - pos - 2);
    pos = slash;
  }
  std::u16string path = text.substr(pos, end - pos);
  std::u16string out = scheme + u"://" + authority + path;
  if (!query.empty()) out += u"?" + query;
  if (!fragment.empty()) out += u"#" + fragment;
  return out;
}

void BM_URIParseToString(benchmark::State& state) {
  for (auto _ : state) {
    for (qo::String const& text : g_corpus) {
      qo::CURI uri(text);
      qo::String written = uri.toString(false);
      benchmark::DoNotOptimize(written.data());
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(g_corpus.size()));
}
BENCHMARK(BM_URIParseToString)->UseRealTime();

void BM_StdHandSplitJoin(benchmark::State& state) {
  for (auto _ : state) {
    for (qo::String const& text : g_corpus) {
      std::u16string written = handSplitAndJoin(text.str());
      benchmark::DoNotOptimize(written.data());
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(g_corpus.size()));
}
BENCHMARK(BM_StdHandSplitJoin)->UseRealTime();

// Parsing alone, one URI again and again. The peer splits the same text at
// its delimiters into std::u16string parts: the least a parser that keeps
// its components must do (no checks, no unescaping, no lower-casing).
struct Parts {
  std::u16string scheme, authority, path, query, fragment;
};

void handSplit(std::u16string const& text, Parts& parts) {
  std::size_t colon = text.find(u':');
  parts.scheme.assign(text, 0, colon);
  std::size_t pos = colon + 1;
  std::size_t end = text.size();
  std::size_t hash = text.find(u'#', pos);
  if (hash != std::u16string::npos) {
    parts.fragment.assign(text, hash + 1);
    end = hash;
  }
  std::size_t question = text.find(u'?', pos);
  if (question != std::u16string::npos && question < end) {
    parts.query.assign(text, question + 1, end - question - 1);
    end = question;
  }
  if (text.compare(pos, 2, u"//") == 0) {
    std::size_t slash = text.find(u'/', pos + 2);
    if (slash == std::u16string::npos || slash > end) slash = end;
    parts.authority.assign(text, pos + 2, slash - pos - 2);
    pos = slash;
  }
  parts.path.assign(text, pos, end - pos);
}

char16_t const kHTTPURI[] = u"http://www.example.com:8080/api/v2/files/report.docx?version=3&lang=en#meta";
char16_t const kFileURI[] = u"file:///C:/Users/alice/Documents/Q4%20Reports/budget%202024.xlsx";

void BM_URIParseQo(benchmark::State& state, char16_t const* text) {
  qo::String const input(text);
  for (auto _ : state) {
    qo::CURI uri(input);
    benchmark::DoNotOptimize(uri.getPath().data());
  }
}
BENCHMARK_CAPTURE(BM_URIParseQo, http, kHTTPURI)->UseRealTime();
BENCHMARK_CAPTURE(BM_URIParseQo, file, kFileURI)->UseRealTime();

void BM_URIParseHandSplit(benchmark::State& state, char16_t const* text) {
  std::u16string const input(text);
  for (auto _ : state) {
    Parts parts;  // fresh each time, as a parsed URI is
    handSplit(input, parts);
    benchmark::DoNotOptimize(parts.path.data());
  }
}
BENCHMARK_CAPTURE(BM_URIParseHandSplit, http, kHTTPURI)->UseRealTime();
BENCHMARK_CAPTURE(BM_URIParseHandSplit, file, kFileURI)->UseRealTime();

void tearDownURIBench() { g_corpus.clear(); }

}  // namespace

QO_BENCH_RATIO("CURI parse + toString / std::u16string hand split + join", "BM_URIParseToString/1",
               "BM_StdHandSplitJoin/1");
QO_BENCH_RATIO("CURI parse of an http URI / std::u16string hand split", "BM_URIParseQo/http/1",
               "BM_URIParseHandSplit/http/1");
QO_BENCH_RATIO("CURI parse of a file:///C:/ URI / std::u16string hand split", "BM_URIParseQo/file/1",
               "BM_URIParseHandSplit/file/1");
QO_BENCH_SETUP(buildCorpus, tearDownURIBench);
