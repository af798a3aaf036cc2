// tamrix: copies files to and from LTFS tape volumes in the order in which they lie on tape.
//
// Where things are, in reading order. A folder is a floor and a build target: a file may use its own folder
// and the ones below it that its CMakeLists.txt links; the build refuses anything else.
//
// main/             the programs: one call each in main, audit_main and plan_main
//   programs          what each program is made of
//   run_program       start-up, precedence of the configuration, exit status
//   interrupts        the first signal stops in good order, the second at once
// pipeline/run/     putting stages together
//   module_manager    which stages run, in which order; starting and joining them
//   audit             the report of a tape audit
//   tape_layout       gaps, sums and pieces of each partition; volume_map draws them
//   plan              what a copy would do: plan_volumes (drive time), plan_room (destinations), plan_files
//                     (batch files), plan_report
//   waiting           for the threads of a run; the listing is one of them
//   progress          how a run is going, for a terminal: pace follows its speed, progress_text writes it
//   json_lines, whole_file  reports; files that are there when they are complete
//   audit_results     what an audit ends with: sums, map, and audit_report, the file of JSON lines
// reader/stage/     file_reader_module, the first stage: reads the files in tape order; open_source, one file;
//                   source_cache, what it leaves in the page cache
// writer/           the stages after it
//   file_writer_module  the last stage: buffers into destinations
//   write_behind      in a long run, writes back early and drops from the page cache
//   open_destination  one destination from its opening to its end; open_for_writing, make_subdir and
//                     copied_times help
//   modsum64_process_module, sparse_process_module  the optional stages; byte_scan does their work
//   checksum_algorithm  the table of checksums
// reader/list/      from options to files in tape order
//   file_lister       base of the listers; spec_file_lister, batch_file_lister, char_special_lister
//   directory_walk    walking a tree; wildcard matches names
//   copy_list         which pairs are copied, in which order
//   pair_index        duplicates and conflicts; path_identity tells which file a path means
//   pair_probes       what the system tells of the pairs, gathered ahead by further threads
//   source_attributes extended attributes of a source, its position on tape, the vendor check
//   overwrite_prompt  the question of -interactive
// pipeline/stage/   what every stage is
//   stages            the three kinds of stage and their loops; module is their base, thread its base
//   module_checksum   comparing and storing checksums
//   globals           what all stages share; run_event wakes the main thread, run_counters tell how far it is
//   open_file         opening what may have to be waited for
//   page_cache        what a long run gives back, and when a run is long
// pipeline/ring/    buffer_q, the ring: how buffers travel; buffer_pool makes it, size_text reads sizes
//   reader_lead       how far the reader may be ahead; thread_usage tells whether it waits for its source
// reader/record/    file_c, extended_attr, extent: what buffers point at
//   file_path         a path in two parts, as millions of them share directories; arena, where they lie
//   run_files         which files a run reads and writes, by device and inode; file_identity, number_table
//   unique_fd         a descriptor that closes itself
// config/           options
//   known_properties  the table: one row per option
//   properties        the store of all options; run_options, what a run reads from it
//   command_line      -name=value, -name, -help, -version; hints, what a refused one may mean
//   parameter_file    the parameters of a batch file
//   paths             making source and destination path absolute
// drive/            how long a tape drive takes: a model; tape_drive, drive_time
// batch/            the XML batch file, read and written
// log/              logger, message catalogue (catalogue/root.txt), typed message ids, annotated mutex
//   console           standard error and output, and a terminal's last line; screen_text cuts it to size
//
// Beside them: tests/ mirrors the folders; model/ is a modelled tape volume; bench/ measures; fuzz/ feeds bad
// input; packaging/ is what is installed beside the programs; docs/ is for operators and successors.
#include "main/run_program.h"

int main(int argc, char** argv) { return tamrix::runTamrix(argc, argv); }
