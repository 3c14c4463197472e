// Writes a picture of a desktop as a PPM file.
//
//   picture OUT.ppm [DISPLAY]

#include <ruvohost/Agent.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s OUT.ppm [DISPLAY]\n", argv[0]);
    return 2;
  }
  ruvohost::Launch launch;
  if (argc > 2) launch.display = argv[2];
  if (const char* agent = getenv("RUVOAGENT")) launch.agent = agent;
  try {
    ruvohost::Listener nobody;
    ruvohost::Agent agent(launch, nobody);
    const ruvohost::Outcome started = agent.await([&](auto answer) { agent.start(answer); });
    if (!started.isDone()) throw ruvohost::Error(started.text);

    const ruvohost::Framebuffer& screen = agent.framebuffer();
    const std::vector<uint8_t> rgba = screen.rgba();
    std::FILE* const file = std::fopen(argv[1], "wb");
    if (!file) throw ruvohost::Error(std::string("can't write ") + argv[1]);
    std::fprintf(file, "P6\n%d %d\n255\n", screen.width(), screen.height());
    for (size_t i = 0; i < rgba.size(); i += 4) std::fwrite(&rgba[i], 1, 3, file);
    if (std::fclose(file) != 0) throw ruvohost::Error(std::string("can't write ") + argv[1]);
    std::printf("%d x %d pixels in %s\n", screen.width(), screen.height(), argv[1]);
    return agent.finish(5000).value_or(1);
  } catch (const ruvohost::Error& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
}
