// A message's formatting beside the C library's vsnprintf: the same line into the same field.

#include <benchmark/benchmark.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "RecordFormat.h"

namespace {

constexpr int kRoom = 8150;  // what a record's prefix leaves

// Of the signature that both have.
using Formatter = int (*)(char* field, int room, const char* format, va_list arguments);

__attribute__((format(printf, 3, 0))) int ByLibrary(char* field, int room, const char* format,
                                                    va_list arguments) {
  return vsnprintf(field, static_cast<size_t>(room), format, arguments);
}

template <Formatter kFormatter>
__attribute__((noinline, format(printf, 2, 3))) int Format(char* field, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = kFormatter(field, kRoom, format, arguments);
  va_end(arguments);
  return length;
}

#define LINE_BENCH(name, ...)                                           \
  template <Formatter kFormatter>                                       \
  void name(benchmark::State& state) {                                  \
    static char field[kRoom];                                           \
    for (auto _ : state)                                                \
      benchmark::DoNotOptimize(Format<kFormatter>(field, __VA_ARGS__)); \
  }                                                                     \
  BENCHMARK(name<Kelvik::FormatMessage>)->Name(#name "/kelvik");        \
  BENCHMARK(name<ByLibrary>)->Name(#name "/vsnprintf")

LINE_BENCH(Packet, "packet %d from %s len %u\n", 12345, "10.0.0.1", 1500U);
LINE_BENCH(TextOnly, "state changed to connected\n");
LINE_BENCH(LongString, "%s\n", "a text of some fifty bytes that a caller composed.");
LINE_BENCH(LongNumbers, "%lld %llu %ld\n", 1234567890123LL, 18446744073709551615ULL, -5L);
LINE_BENCH(Hexadecimal, "%02x:%02x:%02x\n", 1U, 0xabU, 0xffU);
LINE_BENCH(Mixed, "%s: fd %d, %zu bytes, flags %#04x, %5.1f ms\n", "read", 7, size_t{4096}, 0x1bU,
           12.75);
LINE_BENCH(Real, "%f\n", 3.14159);
// Not done here: what the attempt costs beside the library alone.
LINE_BENCH(LeftToLibrary, "connect to %s failed: %e\n", "10.0.0.1", 1e5);

}  // namespace

BENCHMARK_MAIN();
