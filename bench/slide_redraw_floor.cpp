// The floor for redrawing a lecture's slides: plain libvips in one process,
// THREADS threads each taking the next picture, scaling it into a SIDE x SIDE
// box (shrink-on-load, then the default kernel), centring it on a black
// square canvas and writing it as a JPEG at QUALITY into FOLDER. The export
// benchmark times it as a whole process, start-up included, as it does the
// export.
//   slide_redraw_floor THREADS SIDE QUALITY FOLDER PICTURE...
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>
#include <vips/vips8>

using vips::VImage;

int main(int argc, char** argv)
{
    if (argc < 6) {
        std::fprintf(stderr, "usage: %s THREADS SIDE QUALITY FOLDER PICTURE...\n", argv[0]);
        return 2;
    }
    if (VIPS_INIT(argv[0]) != 0) return 1;
    vips_cache_set_max(0);
    const int threads = std::max(1, std::atoi(argv[1]));
    const int side = std::atoi(argv[2]);
    const int quality = std::atoi(argv[3]);
    const std::filesystem::path folder = argv[4];
    const std::vector<std::string> pictures(argv + 5, argv + argc);

    std::atomic<std::size_t> next = 0;
    std::atomic<bool> failed = false;
    auto work = [&] {
        for (std::size_t i = next++; i < pictures.size(); i = next++) {
            try {
                const VImage picture = VImage::thumbnail(
                    pictures[i].c_str(), side, VImage::option()->set("height", side)->set("size", VIPS_SIZE_DOWN));
                const VImage canvas = (picture.bands() == 4 ? picture.flatten() : picture)
                                          .gravity(VIPS_COMPASS_DIRECTION_CENTRE, side, side);
                const auto out = folder / std::filesystem::path(pictures[i]).filename().replace_extension("jpg");
                canvas.write_to_file(out.c_str(), VImage::option()->set("Q", quality));
            } catch (const vips::VError& error) {
                std::fprintf(stderr, "%s: %s\n", pictures[i].c_str(), error.what());
                failed = true;
            }
        }
    };
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) workers.emplace_back(work);
    for (auto& worker : workers) worker.join();
    vips_shutdown();
    return failed ? 1 : 0;
}
