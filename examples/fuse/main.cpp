// Fuses as the command does: main PAN MS OUT.
#include <fusion_api.h>

#include <iostream>

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  fusion::FuseRequest request;
  request.pan = argv[1];
  request.ms = argv[2];
  request.out = argv[3];
  request.method = "brovey";
  try {
    const fusion::FuseReport report = fusion::Fuse(request);
    std::cout << report.width << "x" << report.height << " " << report.type << '\n';
  } catch (const fusion::RunFailure& failure) {
    std::cerr << failure.what() << '\n';
    return 1;
  }
}
