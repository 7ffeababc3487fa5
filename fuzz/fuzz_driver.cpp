// Standalone driver for LLVMFuzzerTestOneInput targets: replays every corpus
// file, then a bounded number of mutations of them, reproducibly (fixed seed).
// An input that ends the run (abort, a crash, or a sanitizer report with
// abort_on_error=1) is written to crash-input in the working directory.
//   fuzz_X [--iterations N] [--seed S] CORPUS_DIR_OR_FILE...
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

// The header is there in every build; the runtime only in a sanitizer build.
#if (defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)) && __has_include(<sanitizer/common_interface_defs.h>)
#include <sanitizer/common_interface_defs.h>
#define VELTRANE_FUZZ_SANITIZER_CALLBACK 1
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

const std::string* g_current = nullptr;

// Writes the input in progress to crash-input; async-signal-safe.
void SaveCurrent() {
  const std::string* input = g_current;
  if (!input) return;
  g_current = nullptr;
  const int fd = ::open("crash-input", O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return;
  for (size_t done = 0; done < input->size();) {
    const ssize_t n = ::write(fd, input->data() + done, input->size() - done);
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  ::close(fd);
  static const char note[] = "fuzz: the input is in crash-input\n";
  [[maybe_unused]] ssize_t ignored = ::write(2, note, sizeof note - 1);
}

void OnFatalSignal(int sig) {
  SaveCurrent();
  std::signal(sig, SIG_DFL);
  std::raise(sig);
}

void Run(const std::string& input) {
  g_current = &input;
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
  g_current = nullptr;
}

std::vector<std::string> loadCorpus(const std::vector<std::string>& paths) {
  std::vector<std::string> corpus;
  for (const auto& p : paths) {
    std::filesystem::path path(p);
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(path)) {
      for (const auto& e : std::filesystem::directory_iterator(path))
        if (e.is_regular_file()) files.push_back(e.path());
    } else if (std::filesystem::is_regular_file(path)) {
      files.push_back(path);
    }
    std::sort(files.begin(), files.end());
    for (const auto& f : files) {
      std::ifstream in(f, std::ios::binary);
      corpus.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
  }
  return corpus;
}

std::string mutate(const std::string& in, const std::vector<std::string>& corpus, std::mt19937_64& rng) {
  std::string s = in;
  const int rounds = 1 + static_cast<int>(rng() % 4);
  for (int r = 0; r < rounds; ++r) {
    const size_t n = s.size();
    switch (rng() % 7) {
      case 0:  // flip a byte
        if (n) s[rng() % n] = static_cast<char>(rng());
        break;
      case 1:  // insert random bytes
        s.insert(n ? rng() % (n + 1) : 0, std::string(1 + rng() % 8, static_cast<char>(rng())));
        break;
      case 2:  // erase a range
        if (n) {
          size_t at = rng() % n;
          s.erase(at, 1 + rng() % std::min<size_t>(n - at, 32));
        }
        break;
      case 3:  // truncate
        if (n) s.resize(rng() % n);
        break;
      case 4:  // duplicate a range
        if (n) {
          size_t at = rng() % n;
          s.insert(at, s.substr(at, 1 + rng() % 64));
        }
        break;
      case 5:  // splice with another corpus entry
        if (!corpus.empty()) {
          const std::string& o = corpus[rng() % corpus.size()];
          if (!o.empty()) s = s.substr(0, n ? rng() % n : 0) + o.substr(rng() % o.size());
        }
        break;
      default: {  // interesting bytes
        static const char* tokens[] = {"<",    ">",   "/",    "&",      "&amp;", "\"",        "'",
                                       "=",    "\0",  "\xff", "xmlns:", ":",     "<![CDATA[", "]]>",
                                       "<!--", "-->", "\r\n", "%",      "0",     "-1",        "99999999999"};
        const char* t = tokens[rng() % (sizeof(tokens) / sizeof(tokens[0]))];
        s.insert(n ? rng() % (n + 1) : 0, t, std::max<size_t>(1, std::strlen(t)));
      }
    }
  }
  return s;
}

}  // namespace

int main(int argc, char** argv) {
  long iterations = 2000;
  uint64_t seed = 20261121;
  std::vector<std::string> paths;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--iterations") && i + 1 < argc)
      iterations = std::atol(argv[++i]);
    else if (!std::strcmp(argv[i], "--seed") && i + 1 < argc)
      seed = std::strtoull(argv[++i], nullptr, 10);
    else
      paths.emplace_back(argv[i]);
  }
  for (int sig : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL}) std::signal(sig, OnFatalSignal);
#ifdef VELTRANE_FUZZ_SANITIZER_CALLBACK
  __sanitizer_set_death_callback(SaveCurrent);
#endif
  std::vector<std::string> corpus = loadCorpus(paths);
  if (corpus.empty()) corpus.emplace_back();
  for (const auto& c : corpus) Run(c);
  std::mt19937_64 rng(seed);
  for (long i = 0; i < iterations; ++i) {
    Run(mutate(corpus[rng() % corpus.size()], corpus, rng));
  }
  std::printf("fuzz: %zu corpus inputs and %ld mutations ran clean\n", corpus.size(), iterations);
  return 0;
}
