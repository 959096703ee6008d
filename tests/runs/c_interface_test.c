/* The whole C interface, as C99: c_interface FOLDER. Says what does not hold; what it measured goes to standard output,
 * where a test compares it with what C++ measures. */
#include <fusion_c.h>
#include <stdio.h>
#include <string.h>

#ifdef _WIN32
#include <windows.h>
/* CommandLineToArgvW */
#include <shellapi.h>
#endif

static int failures = 0;
static void expect(int holds, const char* what, int line) {
  if (holds) return;
  fprintf(stderr, "line %d: %s\n", line, what);
  ++failures;
}
#define EXPECT(condition) expect((condition) != 0, #condition, __LINE__)

typedef struct watched {
  int stages;
  int percent;
  int notices;
  int asked;
  int cancel_at;
  char title[64];
  char published[128];
} watched;

static void on_stage(void* user, const char* name, int number, int count, const char* title, const char* published) {
  watched* w = user;
  ++w->stages;
  EXPECT(strcmp(name, title) == 0 || number > 0);
  EXPECT(number <= count);
  snprintf(w->title, sizeof(w->title), "%s", title);
  snprintf(w->published, sizeof(w->published), "%s", published);
}
static void on_progress(void* user, int percent) { ((watched*)user)->percent = percent; }
static void on_notice(void* user, const char* text) {
  EXPECT(strstr(text, "--window is cut") != NULL);
  ++((watched*)user)->notices;
}
static int on_cancel(void* user) {
  watched* w = user;
  return ++w->asked > w->cancel_at && w->cancel_at >= 0;
}

static void join(char* path, size_t size, const char* folder, const char* name) {
  snprintf(path, size, "%s/%s", folder, name);
}

/* The program's argument as UTF-8. */
static const char* folder_of(char** argv) {
#ifdef _WIN32
  /* The library is given UTF-8; what main gets is in the active code page. */
  static char folder[512];
  int count = 0;
  wchar_t** words = CommandLineToArgvW(GetCommandLineW(), &count);
  (void)argv;
  if (words == NULL || count != 2) return "";
  WideCharToMultiByte(CP_UTF8, 0, words[1], -1, folder, sizeof(folder), NULL, NULL);
  LocalFree(words);
  return folder;
#else
  return argv[1];
#endif
}

int main(int argc, char** argv) {
  char pan[512], ms[512], truth[512], out[512], missing[512];
  if (argc != 2) return 2;
  const char* folder = folder_of(argv);
  join(pan, sizeof(pan), folder, "pan.tif");
  join(ms, sizeof(ms), folder, "ms.tif");
  join(truth, sizeof(truth), folder, "truth.tif");
  join(out, sizeof(out), folder, "c.tif");
  join(missing, sizeof(missing), folder, "missing.tif");

  EXPECT(strchr(fusion_version(), '.') != NULL);
  const size_t methods = fusion_method_count();
  EXPECT(methods >= 8);
  EXPECT(strcmp(fusion_method_name(0), "bayesian") == 0);
  EXPECT(strlen(fusion_method_summary(methods - 1)) > 0);
  EXPECT(fusion_method_name(methods) == NULL);
  EXPECT(fusion_method_summary(methods) == NULL);

  fusion_request* sample = fusion_sample_request();
  EXPECT(fusion_set(sample, "folder", folder) == FUSION_OK);
  EXPECT(fusion_set(sample, "size", "64x48") == FUSION_OK);
  EXPECT(fusion_set_int(sample, "seed", 3) == FUSION_OK);
  EXPECT(fusion_set(sample, "overwrite", "on") == FUSION_OK);
  EXPECT(fusion_set(sample, "size", "64x") == FUSION_WRONG_USAGE);
  EXPECT(strstr(fusion_request_error(sample), "--size") != NULL);
  EXPECT(fusion_set(sample, "pan", "x") == FUSION_WRONG_USAGE);
  EXPECT(strcmp(fusion_request_error(sample), "There is no option 'pan'.") == 0);
  EXPECT(fusion_set(sample, "size", "64x48") == FUSION_OK);
  EXPECT(strcmp(fusion_request_error(sample), "") == 0);
  EXPECT(fusion_set(sample, "shift", "0.5;-0.25") == FUSION_WRONG_USAGE);
  EXPECT(strstr(fusion_request_error(sample), "--shift") != NULL);
  EXPECT(fusion_set(sample, "shift", "17,0") == FUSION_OK);
  fusion_outcome* far_off = fusion_run(sample, NULL);
  EXPECT(fusion_outcome_status(far_off) == FUSION_WRONG_USAGE);
  EXPECT(strstr(fusion_outcome_sentence(far_off), "--shift") != NULL);
  fusion_free_outcome(far_off);
  EXPECT(fusion_set(sample, "shift", "0.5,-0.25") == FUSION_OK);
  EXPECT(fusion_set_double(sample, "noise", 0.003) == FUSION_OK);
  EXPECT(fusion_set_double(sample, "clouds", 0.125) == FUSION_OK);
  fusion_outcome* made = fusion_run(sample, NULL);
  EXPECT(fusion_outcome_status(made) == FUSION_OK);
  EXPECT(fusion_outcome_file_count(made) == 3);
  fusion_file file;
  EXPECT(fusion_outcome_file(made, 1, &file) == 1);
  EXPECT(strcmp(file.path, ms) == 0 && file.width == 16 && file.height == 12 && file.bands == 4);
  EXPECT(file.pixel_size == 2.0);
  EXPECT(fusion_outcome_file(made, 3, &file) == 0);
  fusion_free_outcome(made);
  fusion_free_request(sample);

  const int bands[2] = {3, 1};
  const int window[4] = {-8, 4, 30, 20};
  watched seen = {0, -1, 0, 0, -1, "", ""};
  const fusion_watcher watcher = {&seen, on_stage, on_progress, on_notice, on_cancel};
  fusion_request* fuse = fusion_fuse_request();
  EXPECT(fusion_set(fuse, "pan", pan) == FUSION_OK);
  EXPECT(fusion_set(fuse, "ms", ms) == FUSION_OK);
  EXPECT(fusion_set(fuse, "out", out) == FUSION_OK);
  EXPECT(fusion_set_ints(fuse, "bands", bands, 2) == FUSION_OK);
  EXPECT(fusion_set_ints(fuse, "window", window, 4) == FUSION_OK);
  EXPECT(fusion_set_double(fuse, "bayes-weight", 0.7) == FUSION_OK);
  EXPECT(fusion_set(fuse, "type", "float64") == FUSION_OK);
  EXPECT(fusion_set(fuse, "nodata-mask", "on") == FUSION_OK);
  EXPECT(fusion_set(fuse, "measure-valid", "on") == FUSION_OK);
  EXPECT(fusion_set(fuse, "measure-valid", "perhaps") == FUSION_WRONG_USAGE);
  EXPECT(fusion_set(fuse, "bands", "3;1") == FUSION_WRONG_USAGE);
  EXPECT(fusion_set_double(fuse, "kernel-size", 5.5) == FUSION_WRONG_USAGE);
  fusion_outcome* fused = fusion_run(fuse, &watcher);
  fusion_fused report;
  fusion_registration registration;
  EXPECT(fusion_outcome_status(fused) == FUSION_OK);
  EXPECT(fusion_outcome_error_type(fused) == 0);
  EXPECT(strcmp(fusion_outcome_sentence(fused), "") == 0);
  EXPECT(strcmp(fusion_outcome_message(fused), "") == 0);
  EXPECT(fusion_outcome_fused(fused, &report) == 1);
  EXPECT(strcmp(report.method, "bayesian") == 0);
  EXPECT(strcmp(report.output, out) == 0);
  /* The file tells the same. */
  fusion_outcome* told = fusion_verify(out, NULL);
  EXPECT(fusion_outcome_status(told) == FUSION_OK);
  EXPECT(strcmp(fusion_outcome_fact(told, "method"), "bayesian") == 0);
  EXPECT(strcmp(fusion_outcome_fact(told, "output"), "22x20, 2 bands of float64") == 0);
  EXPECT(strlen(fusion_outcome_fact(told, "checksums")) == 17);
  EXPECT(strcmp(fusion_outcome_fact(told, "colour"), "") == 0);
  fusion_free_outcome(told);
  told = fusion_info(pan);
  EXPECT(fusion_outcome_status(told) == FUSION_WRONG_USAGE);
  EXPECT(strcmp(fusion_outcome_fact(told, "method"), "") == 0);
  fusion_free_outcome(told);
  EXPECT(fusion_info(NULL) == NULL && fusion_verify(NULL, NULL) == NULL);
  EXPECT(strcmp(fusion_outcome_fact(NULL, "method"), "") == 0);
  EXPECT(strlen(fusion_method_formula(0)) > 0 && strlen(fusion_method_source(0)) > 0);
  EXPECT(strlen(fusion_method_suits(0)) > 0 && strlen(fusion_method_spares(0)) > 0);
  EXPECT(fusion_method_formula(1000) == NULL);
  EXPECT(report.width == 22 && report.height == 20 && report.bands == 2);
  EXPECT(strcmp(report.type, "float64") == 0);
  EXPECT(report.seconds > 0.0);
  EXPECT(report.has_valid_share == 1 && report.valid_share == 1.0);
  EXPECT(fusion_outcome_registration(fused, &registration) == 1);
  EXPECT(registration.score > 0.0 && registration.score <= 1.0 && !registration.applied);
  EXPECT(fusion_outcome_registration(fused, NULL) == 0 && fusion_outcome_registration(NULL, &registration) == 0);
  EXPECT(seen.stages == 2 && seen.percent == 100 && seen.notices == 1 && seen.asked > 0);
  EXPECT(strcmp(seen.title, "bayesian") == 0);
  EXPECT(strstr(seen.published, "bayesian...") != NULL && strcmp(seen.published, seen.title) != 0);
  EXPECT(fusion_outcome_notice_count(fused) == 1);
  EXPECT(strstr(fusion_outcome_notice(fused, 0), "0,4,22,20") != NULL);
  EXPECT(fusion_outcome_notice(fused, 1) == NULL);
  EXPECT(fusion_outcome_file_count(fused) == 0 && fusion_outcome_figures_count(fused) == 0);
  fusion_free_outcome(fused);

  /* The output is there now. */
  fused = fusion_run(fuse, NULL);
  EXPECT(fusion_outcome_status(fused) == FUSION_WRONG_USAGE);
  EXPECT(fusion_outcome_error_type(fused) == -1);
  EXPECT(strstr(fusion_outcome_sentence(fused), "--overwrite") != NULL);
  EXPECT(fusion_outcome_fused(fused, &report) == 0);
  fusion_free_outcome(fused);
  EXPECT(fusion_set(fuse, "overwrite", "on") == FUSION_OK);
  seen.asked = 0;
  seen.cancel_at = 1;
  fused = fusion_run(fuse, &watcher);
  EXPECT(fusion_outcome_status(fused) == FUSION_CANCELLED);
  EXPECT(fusion_outcome_error_type(fused) == 1);
  fusion_free_outcome(fused);
  EXPECT(fusion_set(fuse, "pan", missing) == FUSION_OK);
  fused = fusion_run(fuse, NULL);
  EXPECT(fusion_outcome_status(fused) == FUSION_FAILED);
  EXPECT(fusion_outcome_error_type(fused) == 4);
  EXPECT(strstr(fusion_outcome_sentence(fused), "does not exist") != NULL);
  EXPECT(strstr(fusion_outcome_message(fused), missing) != NULL);
  fusion_free_outcome(fused);
  fusion_free_request(fuse);

  fusion_request* evaluate = fusion_evaluate_request();
  EXPECT(fusion_set(evaluate, "pan", pan) == FUSION_OK);
  EXPECT(fusion_set(evaluate, "ms", ms) == FUSION_OK);
  EXPECT(fusion_set(evaluate, "fused", truth) == FUSION_OK);
  EXPECT(fusion_set(evaluate, "metric", "statistics,snr") == FUSION_OK);
  fusion_outcome* figures = fusion_run(evaluate, NULL);
  fusion_figures array;
  EXPECT(fusion_outcome_status(figures) == FUSION_OK);
  EXPECT(fusion_outcome_label_count(figures) == 4);
  EXPECT(strcmp(fusion_outcome_label(figures, 0), "band 1") == 0);
  EXPECT(fusion_outcome_label(figures, 4) == NULL);
  EXPECT(fusion_outcome_figures_count(figures) == 9);
  for (size_t i = 0; fusion_outcome_figures(figures, i, &array); ++i) {
    printf("%s %s", array.metric, array.name);
    for (size_t k = 0; k < array.count; ++k) printf(" %.17g", array.values[k]);
    printf("\n");
  }
  fusion_free_outcome(figures);
  fusion_free_request(evaluate);

  /* A scene that is large enough to be degraded. */
  char large[512];
  join(large, sizeof(large), folder, "large");
  sample = fusion_sample_request();
  EXPECT(fusion_set(sample, "folder", large) == FUSION_OK);
  EXPECT(fusion_set_int(sample, "size", 96) == FUSION_OK);
  fusion_free_outcome(fusion_run(sample, NULL));
  fusion_free_request(sample);
  join(pan, sizeof(pan), folder, "large/pan.tif");
  join(ms, sizeof(ms), folder, "large/ms.tif");
  fusion_request* assess = fusion_assess_request();
  EXPECT(fusion_set(assess, "pan", pan) == FUSION_OK);
  EXPECT(fusion_set(assess, "ms", ms) == FUSION_OK);
  EXPECT(fusion_set(assess, "methods", "brovey,hpf") == FUSION_OK);
  EXPECT(fusion_set_double(assess, "mtf", 0.25) == FUSION_OK);
  EXPECT(fusion_set_int(assess, "tiles", 4) == FUSION_OK);
  fusion_outcome* assessed = fusion_run(assess, NULL);
  EXPECT(fusion_outcome_status(assessed) == FUSION_OK);
  /* The methods and the upsampled bands, the best first. */
  EXPECT(fusion_outcome_label_count(assessed) == 3);
  EXPECT(strstr(fusion_outcome_advice(assessed), fusion_outcome_best(assessed)) != NULL);
  EXPECT(fusion_outcome_figures_count(assessed) == 12);
  for (size_t i = 0; fusion_outcome_figures(assessed, i, &array); ++i) {
    printf("%s %s", array.metric, array.name);
    EXPECT(array.count == 3);
    for (size_t k = 0; k < array.count; ++k) printf(" %.17g", array.values[k]);
    printf("\n");
  }
  for (size_t i = 0; i < 3; ++i) printf("%s ", fusion_outcome_label(assessed, i));
  printf("%s\n", fusion_outcome_best(assessed));
  fusion_free_outcome(assessed);
  EXPECT(fusion_set(assess, "protocol", "half") == FUSION_OK);
  assessed = fusion_run(assess, NULL);
  EXPECT(fusion_outcome_status(assessed) == FUSION_WRONG_USAGE);
  EXPECT(strcmp(fusion_outcome_best(assessed), "") == 0);
  EXPECT(strcmp(fusion_outcome_advice(assessed), "") == 0);
  fusion_free_outcome(assessed);
  fusion_free_request(assess);

  fusion_request* check = fusion_check_request();
  EXPECT(fusion_set(check, "pan", pan) == FUSION_OK);
  EXPECT(fusion_set(check, "ms", ms) == FUSION_OK);
  EXPECT(fusion_set(check, "bands", "1,3") == FUSION_OK);
  EXPECT(fusion_set(check, "method", "brovey") == FUSION_WRONG_USAGE);
  fusion_outcome* checked = fusion_run(check, NULL);
  fusion_checked looked;
  fusion_finding finding;
  EXPECT(fusion_outcome_status(checked) == FUSION_OK);
  EXPECT(fusion_outcome_checked(checked, &looked) == 1);
  printf("%d %.17g %.17g %.17g %d", looked.fine, looked.pan_overlap, looked.dx, looked.blur, looked.windows);
  printf(" %d\n", (int)fusion_outcome_finding_count(checked));
  EXPECT(fusion_outcome_label_count(checked) == 3);
  EXPECT(strcmp(fusion_outcome_label(checked, 0), "pan") == 0);
  EXPECT(fusion_outcome_figures(checked, 2, &array) == 1);
  EXPECT(strcmp(array.metric, "check") == 0 && strcmp(array.name, "mean") == 0 && array.count == 3);
  EXPECT(fusion_outcome_finding(checked, fusion_outcome_finding_count(checked), &finding) == 0);
  fusion_free_outcome(checked);
  /* The other way round there is something to be told. */
  EXPECT(fusion_set(check, "pan", ms) == FUSION_OK);
  EXPECT(fusion_set(check, "ms", pan) == FUSION_OK);
  EXPECT(fusion_set(check, "bands", "") == FUSION_OK);
  checked = fusion_run(check, NULL);
  EXPECT(fusion_outcome_checked(checked, &looked) == 1);
  EXPECT(looked.fine == 0 && looked.has_shift == 0);
  EXPECT(fusion_outcome_finding(checked, 0, &finding) == 1);
  EXPECT(finding.is_warning && strcmp(finding.name, "order") == 0);
  EXPECT(strlen(finding.text) > 0 && strlen(finding.advice) > 0);
  EXPECT(fusion_outcome_fused(checked, &report) == 0);
  fusion_free_outcome(checked);
  fusion_free_request(check);

  char page[512];
  join(truth, sizeof(truth), folder, "large/truth.tif");
  join(page, sizeof(page), folder, "report.html");
  fusion_request* about = fusion_report_request();
  EXPECT(fusion_set(about, "pan", pan) == FUSION_OK);
  EXPECT(fusion_set(about, "ms", ms) == FUSION_OK);
  EXPECT(fusion_set(about, "fused", truth) == FUSION_OK);
  EXPECT(fusion_set(about, "method", "brovey") == FUSION_WRONG_USAGE);
  fusion_outcome* reported = fusion_run(about, NULL);
  EXPECT(fusion_outcome_status(reported) == FUSION_WRONG_USAGE);
  fusion_free_outcome(reported);
  EXPECT(fusion_set(about, "out", page) == FUSION_OK);
  reported = fusion_run(about, NULL);
  EXPECT(fusion_outcome_status(reported) == FUSION_OK);
  EXPECT(fusion_outcome_checked(reported, &looked) == 1);
  EXPECT(fusion_outcome_figures_count(reported) == 5);
  EXPECT(strcmp(fusion_outcome_label(reported, 0), "truth") == 0);
  for (size_t i = 0; fusion_outcome_figures(reported, i, &array); ++i) {
    EXPECT(array.count == 1);
    printf("%s %s %.17g\n", array.metric, array.name, array.values[0]);
  }
  fusion_free_outcome(reported);
  fusion_free_request(about);

  /* Two halves of a survey make the rows of a fusion, which another compares with those of the whole. */
  char first[512], second[512], survey[512], rows[512];
  join(first, sizeof(first), folder, "first.survey");
  join(second, sizeof(second), folder, "second.survey");
  join(survey, sizeof(survey), folder, "whole.survey");
  join(rows, sizeof(rows), folder, "rows.tif");
  fusion_request* part = fusion_survey_request();
  EXPECT(fusion_set(part, "pan", pan) == FUSION_OK);
  EXPECT(fusion_set(part, "ms", ms) == FUSION_OK);
  EXPECT(fusion_set(part, "method", "brovey") == FUSION_OK);
  EXPECT(fusion_set(part, "dry-run", "on") == FUSION_OK);
  fusion_outcome* surveyed = fusion_run(part, NULL);
  EXPECT(fusion_outcome_status(surveyed) == FUSION_OK);
  EXPECT(strcmp(fusion_outcome_fact(surveyed, "height"), "96") == 0);
  EXPECT(strcmp(fusion_outcome_fact(surveyed, "complete"), "no") == 0);
  EXPECT(fusion_outcome_fused(surveyed, &report) == 0);
  fusion_free_outcome(surveyed);
  EXPECT(fusion_set(part, "dry-run", "off") == FUSION_OK);
  EXPECT(fusion_set(part, "rows", "0:40") == FUSION_OK);
  EXPECT(fusion_set(part, "out", first) == FUSION_OK);
  surveyed = fusion_run(part, NULL);
  EXPECT(fusion_outcome_status(surveyed) == FUSION_OK);
  EXPECT(strcmp(fusion_outcome_fact(surveyed, "output"), first) == 0);
  fusion_free_outcome(surveyed);
  EXPECT(fusion_set(part, "rows", "40:96") == FUSION_OK);
  EXPECT(fusion_set(part, "out", second) == FUSION_OK);
  fusion_free_outcome(fusion_run(part, NULL));
  EXPECT(fusion_set(part, "rows", "90:97") == FUSION_OK);
  EXPECT(fusion_set(part, "overwrite", "on") == FUSION_OK);
  surveyed = fusion_run(part, NULL);
  EXPECT(fusion_outcome_status(surveyed) == FUSION_WRONG_USAGE);
  EXPECT(strcmp(fusion_outcome_fact(surveyed, "output"), "") == 0);
  EXPECT(strlen(fusion_outcome_sentence(surveyed)) > 0);
  fusion_free_outcome(surveyed);
  EXPECT(fusion_set(part, "metric", "snr") == FUSION_WRONG_USAGE);
  fusion_free_request(part);
  fusion_request* merge = fusion_survey_request();
  char both[1100];
  snprintf(both, sizeof(both), "%s\n%s", second, first);
  EXPECT(fusion_set(merge, "merge", both) == FUSION_OK);
  EXPECT(fusion_set(merge, "out", survey) == FUSION_OK);
  surveyed = fusion_run(merge, NULL);
  EXPECT(fusion_outcome_status(surveyed) == FUSION_OK);
  EXPECT(strcmp(fusion_outcome_fact(surveyed, "parts"), "0") != 0);
  EXPECT(strcmp(fusion_outcome_fact(surveyed, "output"), survey) == 0);
  fusion_free_outcome(surveyed);
  fusion_free_request(merge);
  fuse = fusion_fuse_request();
  EXPECT(fusion_set(fuse, "pan", pan) == FUSION_OK);
  EXPECT(fusion_set(fuse, "ms", ms) == FUSION_OK);
  EXPECT(fusion_set(fuse, "method", "brovey") == FUSION_OK);
  EXPECT(fusion_set(fuse, "survey", survey) == FUSION_OK);
  EXPECT(fusion_set(fuse, "rows", "30:70") == FUSION_OK);
  EXPECT(fusion_set(fuse, "out", rows) == FUSION_OK);
  fused = fusion_run(fuse, NULL);
  EXPECT(fusion_outcome_fused(fused, &report) == 1);
  EXPECT(report.width == 96 && report.height == 40);
  fusion_free_outcome(fused);
  fusion_free_request(fuse);

  /* Nothing where there is nothing. */
  EXPECT(fusion_outcome_checked(NULL, &looked) == 0);
  EXPECT(fusion_outcome_finding_count(NULL) == 0);
  EXPECT(strcmp(fusion_outcome_best(NULL), "") == 0);
  EXPECT(strcmp(fusion_outcome_advice(NULL), "") == 0);
  fusion_free_request(NULL);
  fusion_free_outcome(NULL);
  EXPECT(fusion_run(NULL, NULL) == NULL);
  EXPECT(fusion_set(NULL, "pan", "x") == FUSION_WRONG_USAGE);
  EXPECT(fusion_outcome_status(NULL) == FUSION_FAILED);
  EXPECT(fusion_outcome_error_type(NULL) == -1);
  EXPECT(strcmp(fusion_outcome_sentence(NULL), "") == 0);
  EXPECT(strcmp(fusion_request_error(NULL), "") == 0);
  EXPECT(fusion_outcome_notice(NULL, 0) == NULL);
  return failures == 0 ? 0 : 1;
}
