#pragma once

// The mark in a folder for unfinished files: which run it belongs to. A run that was killed leaves
// its folder behind; the next one in the same place reads the mark and takes the folder away, if
// the run is surely over.
//
//     morva run
//     host builder7 4d0c...     name and, if it has one, number of the machine
//     boot 0b1c...              number of the machine's start
//     space pid:[4026531836]    in which process numbers mean something
//     process 4711
//     start 815162              when the process started, in clock ticks since the machine did
//
// The folder's name tells the same in short, for a run that was killed before it wrote the mark:
//
//     .morva-4711-815162-9c01f2aa03b7d4e6-XXXXXX   process, start, print of the lines above them

#include <string>
#include <system_error>

namespace morva::host {

/// Name of the file that holds the mark.
inline constexpr const char* run_marker_name = "run";

/// The mark of this run.
std::string runMarker();

/// The name for a folder of this run, as a template for mkdtemp().
std::string runFolderName();

/// Removes a folder with all that it holds, the mark last: if the process is killed meanwhile, what
/// is left still tells whose it is.
void removeRunFolder(const std::string& path, std::error_code& error);

/// Removes the folders ".morva-*" in `folder` that hold the mark of a run of this machine that is
/// over, and those of such a run by name that hold nothing yet. Over means that its process is gone
/// or the machine was started anew; not where that is in doubt. Nothing else is touched, and what
/// can't be removed stays.
void sweepEndedRuns(const std::string& folder);

} // namespace morva::host
