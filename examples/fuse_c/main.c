/* Fuses as the command does: main PAN MS OUT. */
#include <fusion_c.h>
#include <stdio.h>

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  fusion_request* request = fusion_fuse_request();
  fusion_set(request, "pan", argv[1]);
  fusion_set(request, "ms", argv[2]);
  fusion_set(request, "out", argv[3]);
  fusion_set(request, "method", "brovey");
  fusion_outcome* outcome = fusion_run(request, NULL);
  fusion_fused fused;
  const int done = fusion_outcome_fused(outcome, &fused);
  if (done) printf("%dx%d %s\n", fused.width, fused.height, fused.type);
  if (!done) fprintf(stderr, "%s\n", fusion_outcome_sentence(outcome));
  fusion_free_outcome(outcome);
  fusion_free_request(request);
  return done ? 0 : 1;
}
