// The frei0r filter's f0r_update against the copies it avoids, in one interleaved run: per
// 1080p RGBA frame, the filter with a static title, the filter with nothing to draw, one frame
// copy (the floor: the output must receive the input), and a red/blue swapping copy (what
// converting RGBA to the effect's 'bgra' and back would cost, once each way).
//
// Usage: bench_frei0r_update [--frames N] [--repeats R]
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" {
#include <frei0r.h>
}

namespace {

using Clock = std::chrono::steady_clock;

struct Filter {
  int (*init)();
  f0r_instance_t (*construct)(unsigned, unsigned);
  void (*destruct)(f0r_instance_t);
  void (*set)(f0r_instance_t, f0r_param_t, int);
  void (*update)(f0r_instance_t, double, const uint32_t*, uint32_t*);
};

void SwapCopy(const uint32_t* in, uint32_t* out, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    const uint32_t p = in[i];
    out[i] = (p & 0xff00ff00u) | ((p & 0xffu) << 16) | ((p >> 16) & 0xffu);
  }
}

}  // namespace

int main(int argc, char** argv) {
  int frames = 60, repeats = 5;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--frames") == 0) frames = std::max(1, std::atoi(argv[i + 1]));
    if (std::strcmp(argv[i], "--repeats") == 0) repeats = std::max(1, std::atoi(argv[i + 1]));
  }
  void* lib = dlopen(VETEXT_FREI0R_PATH, RTLD_NOW | RTLD_LOCAL);
  if (lib == nullptr) {
    std::fprintf(stderr, "bench_frei0r_update: %s\n", dlerror());
    return 1;
  }
  Filter f{reinterpret_cast<int (*)()>(dlsym(lib, "f0r_init")),
           reinterpret_cast<f0r_instance_t (*)(unsigned, unsigned)>(dlsym(lib, "f0r_construct")),
           reinterpret_cast<void (*)(f0r_instance_t)>(dlsym(lib, "f0r_destruct")),
           reinterpret_cast<void (*)(f0r_instance_t, f0r_param_t, int)>(
               dlsym(lib, "f0r_set_param_value")),
           reinterpret_cast<void (*)(f0r_instance_t, double, const uint32_t*, uint32_t*)>(
               dlsym(lib, "f0r_update"))};
  if (!f.init || !f.construct || !f.update || f.init() != 1) return 1;
  const unsigned w = 1920, h = 1080;
  const size_t n = size_t(w) * h;
  // Several input frames, so that no row measures one cache-hot buffer.
  std::vector<std::vector<uint32_t>> in(4, std::vector<uint32_t>(n));
  for (size_t k = 0; k < in.size(); ++k)
    for (size_t i = 0; i < n; ++i) in[k][i] = 0xff000000u | uint32_t(i * 2654435761u + k) >> 8;
  std::vector<uint32_t> out(n);
  f0r_instance_t title = f.construct(w, h), blank = f.construct(w, h);
  f0r_param_string t = const_cast<char*>("vetext"), space = const_cast<char*>(" ");
  f.set(title, &t, 0);
  f.set(blank, &space, 0);
  double size = 96.0 / 1080;
  f.set(title, &size, 2);
  struct Row {
    const char* name;
    std::vector<double> ms;
  } rows[] = {{"filter, static title", {}},
              {"filter, nothing to draw", {}},
              {"frame copy (floor)", {}},
              {"two swapping copies", {}}};
  for (int r = 0; r < repeats; ++r)
    for (Row& row : rows) {
      const auto start = Clock::now();
      for (int i = 0; i < frames; ++i) {
        const uint32_t* src = in[size_t(i) % in.size()].data();
        if (&row == &rows[0]) f.update(title, i / 30.0, src, out.data());
        if (&row == &rows[1]) f.update(blank, i / 30.0, src, out.data());
        if (&row == &rows[2]) std::memcpy(out.data(), src, n * 4);
        if (&row == &rows[3]) {
          SwapCopy(src, out.data(), n);
          SwapCopy(out.data(), out.data(), n);
        }
      }
      row.ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count() /
                       frames);
    }
  auto median = [](std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
  };
  const double floor = median(rows[2].ms);
  std::printf("1920x1080 RGBA, %d frames, median of %d interleaved runs\n", frames, repeats);
  std::printf("%-26s %9s %9s\n", "row", "ms/frame", "vs floor");
  for (const Row& row : rows)
    std::printf("%-26s %9.3f %8.2fx\n", row.name, median(row.ms), median(row.ms) / floor);
  f.destruct(title);
  f.destruct(blank);
  return 0;
}
