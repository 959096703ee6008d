/** @file
 * Runs of the library for C (C99) and whatever calls C: what runs/fuse.h, runs/check.h, runs/evaluate.h,
 * runs/assess.h, runs/report.h and runs/sample.h are for C++.
 *
 * Text is UTF-8 and ends with a 0. Handles are opaque; whoever makes one frees it. What a function answers as text or
 * array belongs to the handle it was asked of and lives as long. No function lets an exception out; all of them take
 * null for a handle and do nothing then. One run at a time in a process. */
#ifndef FUSION_C_H
#define FUSION_C_H

#include <stddef.h>

#include "platform/system/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** How something ended. */
typedef enum fusion_status {
  FUSION_OK = 0,
  FUSION_FAILED = 1,      /**< a run failed, or there was no memory */
  FUSION_WRONG_USAGE = 2, /**< what was asked for cannot work */
  FUSION_CANCELLED = 3    /**< the watcher wanted it */
} fusion_status;

/** The library's version, "1.2.3". */
FUSION_API const char* fusion_version(void);

/** The fusion methods, the default first. Null beyond the last. */
FUSION_API size_t fusion_method_count(void);
FUSION_API const char* fusion_method_name(size_t index);
FUSION_API const char* fusion_method_summary(size_t index);
/** Its formula, where it was published, when to take it and when not. */
FUSION_API const char* fusion_method_formula(size_t index);
FUSION_API const char* fusion_method_source(size_t index);
FUSION_API const char* fusion_method_suits(size_t index);
FUSION_API const char* fusion_method_spares(size_t index);

/** What is to be done. */
typedef struct fusion_request fusion_request;

/** A fusion, a look at a pair of images before one, a comparison of a fused image with its inputs, a comparison of the
 * methods on a scene, a page about fused images, a made-up scene; with all defaults. Null without memory. */
FUSION_API fusion_request* fusion_fuse_request(void);
FUSION_API fusion_request* fusion_check_request(void);
FUSION_API fusion_request* fusion_evaluate_request(void);
FUSION_API fusion_request* fusion_assess_request(void);
FUSION_API fusion_request* fusion_report_request(void);
FUSION_API fusion_request* fusion_sample_request(void);
/** What a fusion takes from the whole images, gathered for some rows ("rows", "out"), or surveys merged ("merge", one
 * name a line). Its outcome has the facts "output", "height" (rows of the whole output), "parts", "complete" and
 * "awaited" (yes or no). */
FUSION_API fusion_request* fusion_survey_request(void);
FUSION_API void fusion_free_request(fusion_request* request);

/** Sets an option by the command's name for it, without dashes: "spectral-match", "bands". Files are "pan", "ms",
 * "out", "fused" (of a report several, one a line), "picture", "quicklook"; "folder" and "keep" are folders. Switches
 * take "on" and "off", lists have commas: "3,2,1". Two that the command has not: "measure-valid" (a switch: measure
 * fusion_fused.valid_share) and "given" (words for the log). FUSION_WRONG_USAGE for an unknown option and for a value
 * of another kind; whether the value can work is told by the run. */
FUSION_API fusion_status fusion_set(fusion_request* request, const char* option, const char* value);
/** The same with numbers as they are: no locale, no rounding. */
FUSION_API fusion_status fusion_set_int(fusion_request* request, const char* option, int value);
FUSION_API fusion_status fusion_set_double(fusion_request* request, const char* option, double value);
FUSION_API fusion_status fusion_set_ints(fusion_request* request, const char* option, const int* values, size_t count);
/** Why the last of these was refused, in English; empty where it was not. */
FUSION_API const char* fusion_request_error(const fusion_request* request);

/** Who watches a run: any function may be null, user is handed to all of them. They are called by the thread that runs.
 */
typedef struct fusion_watcher {
  void* user;
  /** A stage begins: its name, which stays as it is, its place in its pipeline (0 of 0 outside one), an English title
   * to show, and the title that the library publishes (Chinese). */
  void (*stage)(void* user, const char* name, int number, int count, const char* title, const char* published);
  /** How much of the stage is done, 0 to 100. */
  void (*progress)(void* user, int percent);
  /** Something that the run did by itself, or that its user should know of: an English sentence. */
  void (*notice)(void* user, const char* text);
  /** Asked often; anything but 0 ends the run, as cancelled, with nothing written. */
  int (*cancel)(void* user);
} fusion_watcher;

/** How a run went. */
typedef struct fusion_outcome fusion_outcome;

/** Runs a request, which can be run again. The watcher may be null. Null only without a request or memory for the
 * outcome itself. */
FUSION_API fusion_outcome* fusion_run(const fusion_request* request, const fusion_watcher* watcher);
FUSION_API void fusion_free_outcome(fusion_outcome* outcome);

/** How a fused image was made, as it tells itself; and the same after comparing its samples with its checksums. */
FUSION_API fusion_outcome* fusion_info(const char* file);
FUSION_API fusion_outcome* fusion_verify(const char* file, const fusion_watcher* watcher);
/** What they have found: "version", "time", "method", "options", "guards", "output", "checksums" (with spaces), and
 * "command", which makes it again. Empty for what is not told, and after a failure. */
FUSION_API const char* fusion_outcome_fact(const fusion_outcome* outcome, const char* name);

/** FUSION_FAILED for null. */
FUSION_API fusion_status fusion_outcome_status(const fusion_outcome* outcome);
/** The library's error type; 0 after success, and where images have no common ground; -1 for wrong usage and for what
 * is no failure of an algorithm. */
FUSION_API int fusion_outcome_error_type(const fusion_outcome* outcome);
/** What went wrong, in English; empty after success. */
FUSION_API const char* fusion_outcome_sentence(const fusion_outcome* outcome);
/** The library's own message (Chinese); often empty. */
FUSION_API const char* fusion_outcome_message(const fusion_outcome* outcome);
/** The notices of a run, also of one that failed. Null beyond the last. */
FUSION_API size_t fusion_outcome_notice_count(const fusion_outcome* outcome);
FUSION_API const char* fusion_outcome_notice(const fusion_outcome* outcome, size_t index);

/** What a fusion has written. */
typedef struct fusion_fused {
  const char* method;
  const char* output;
  int width;  /**< pixels */
  int height; /**< pixels */
  int bands;
  const char* type;    /**< of the samples: "uint16" */
  double seconds;      /**< that the run took */
  int has_valid_share; /**< 0 where it was not asked for, or the run did not mask pixels without data */
  double valid_share;  /**< of the pixels, 0 to 1, that have data */
} fusion_fused;

/** Fills it in after a fusion that succeeded and answers 1; else 0. */
FUSION_API int fusion_outcome_fused(const fusion_outcome* outcome, fusion_fused* fused);

/** How the multispectral image lies to the pan image, by their detail. */
typedef struct fusion_registration {
  double dx;        /**< pan pixels by which it has to be moved to the right */
  double dy;        /**< and down; both 0 where no move is certain to make it better */
  int applied;      /**< whether it was moved for the run */
  double agreement; /**< share of the places looked at that the best move suits better than none */
  double score;     /**< share of the blurred pan's detail that the detail of the bands explains */
} fusion_registration;

/** Fills it in after a fusion that succeeded and looked for it, and answers 1; else 0. */
FUSION_API int fusion_outcome_registration(const fusion_outcome* outcome, fusion_registration* registration);

/** What was seen of a pair of images. */
typedef struct fusion_checked {
  int fine;           /**< whether there is nothing to warn of */
  double ratio_x;     /**< multispectral over pan pixel width */
  double ratio_y;     /**< likewise of the heights */
  double pan_overlap; /**< share of pan's ground, 0 to 1, that the multispectral image covers */
  double ms_overlap;  /**< and the other way round */
  double covered;     /**< share of the pixels there with data in all bands and in pan */
  int has_shift;      /**< 0 where the images show no common detail: nothing below is known then */
  double dx;          /**< pan pixels by which the multispectral image has to be moved to the right */
  double dy;          /**< and down */
  double spread_x;    /**< of the windows that this was measured in */
  double spread_y;
  int windows;
  double score; /**< share of the blurred pan's detail that the detail of the bands explains */
  double blur;  /**< width of the Gaussian that makes pan look like the bands; 0 for the mean over a pixel */
} fusion_checked;

/** Fills it in after a check, or a report, that succeeded and answers 1; else 0. The figures of a check are below:
 * metric is "check", and there is a value for pan and one for each band. Those of a report are "full", with a value for
 * each fused image; the labels are the images'. */
FUSION_API int fusion_outcome_checked(const fusion_outcome* outcome, fusion_checked* checked);

/** Something to be known before a fusion. */
typedef struct fusion_finding {
  int is_warning;     /**< 0: a fact that needs nothing to be done */
  const char* name;   /**< a word that stays as it is: "shift" */
  const char* text;   /**< an English sentence */
  const char* advice; /**< what to do; empty where nothing is */
} fusion_finding;

/** The findings of a check, or a report, that succeeded, warnings first; 0 beyond the last. */
FUSION_API size_t fusion_outcome_finding_count(const fusion_outcome* outcome);
FUSION_API int fusion_outcome_finding(const fusion_outcome* outcome, size_t index, fusion_finding* finding);

/** A result array of an evaluation. */
typedef struct fusion_figures {
  const char* metric;   /**< "statistics" */
  const char* name;     /**< as published: "m_pMulMean" */
  const double* values; /**< one for each pair of bands, or for each multispectral and then for each fused band; NaN
                           where undefined */
  size_t count;
} fusion_figures;

/** The arrays of an evaluation that succeeded, in the order of its metrics; 0 beyond the last. */
FUSION_API size_t fusion_outcome_figures_count(const fusion_outcome* outcome);
FUSION_API int fusion_outcome_figures(const fusion_outcome* outcome, size_t index, fusion_figures* figures);
/** The labels of its pairs of bands. Null beyond the last. */
FUSION_API size_t fusion_outcome_label_count(const fusion_outcome* outcome);
FUSION_API const char* fusion_outcome_label(const fusion_outcome* outcome, size_t index);

/** A comparison of methods has figures, too: metric is the protocol ("wald", "full"), name the measure ("ERGAS"), and
 * there is a value for each method, or NaN. The labels are the methods' names, the best first.
 *
 * The best method of a comparison that succeeded, and a sentence or two of advice; else empty. */
FUSION_API const char* fusion_outcome_best(const fusion_outcome* outcome);
FUSION_API const char* fusion_outcome_advice(const fusion_outcome* outcome);

/** A file of a made-up scene. */
typedef struct fusion_file {
  const char* path;
  int width;  /**< pixels */
  int height; /**< pixels */
  int bands;
  double pixel_size; /**< metres */
} fusion_file;

/** The files of a scene that was made: pan, multispectral, truth; 0 beyond the last. */
FUSION_API size_t fusion_outcome_file_count(const fusion_outcome* outcome);
FUSION_API int fusion_outcome_file(const fusion_outcome* outcome, size_t index, fusion_file* file);

#ifdef __cplusplus
}
#endif

#endif
