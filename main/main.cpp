// tamrix: copies files to and from LTFS tape volumes in the order in which they lie on tape.
//
// Where things are, in reading order. Links go downwards in this list only; a folder with two floors is two
// build targets.
//
// main/       the program
//   run_tamrix        start-up, precedence of the configuration, exit status
//   interrupts        the first signal stops in good order, the second at once
// config/     options
//   known_properties  the table: one row per option
//   properties        the store of all options
//   command_line      -name=value, -name, -help, -version
//   parameter_file    the parameters of a batch file
//   paths             making source and destination path absolute
// pipeline/   upper floor: putting stages together
//   module_manager    which stages run, in which order; starting and joining them
//   audit             the report of a tape audit
// reader/     upper floor: from options to files in tape order, and reading them
//   file_lister       base of the listers; spec_file_lister, batch_file_lister, char_special_lister
//   directory_walk    walking a tree; wildcard matches names
//   copy_list         which pairs are copied, in which order
//   pair_index        duplicates and conflicts; path_identity tells which file a path means
//   pair_probes       what the system tells of the pairs, gathered ahead by a second thread
//   source_attributes extended attributes of a source, its position on tape, the vendor check
//   overwrite_prompt  the question of -interactive
//   file_reader_module  the reader stage
// writer/     the stages behind the reader
//   file_writer_module  the writer stage; make_subdir makes directories
//   modsum64_process_module, sparse_process_module  the optional stages; byte_scan does their work
// pipeline/   lower floor: what stages stand on
//   buffer_q          the ring: how buffers travel; buffer_pool makes it, size_text reads sizes
//   stages            the three kinds of stage and their loops; module is their base, thread its base
//   module_checksum   comparing and storing checksums
//   globals           what all stages share, the stop flag
// reader/     lower floor: file_c, extended_attr, extent, the records that buffers point at
// batch/      the XML batch file
// log/        logger, message catalogue (catalogue/root.txt), typed message ids, annotated mutex
//
// tests/ mirrors the folders; bench/ measures; fuzz/ feeds bad input; docs/ is for operators and successors.
#include "main/run_tamrix.h"

int main(int argc, char** argv) { return tamrix::runTamrix(argc, argv); }
