#pragma once

// The System V segments that this process has made and that still exist.
int ownSegments();
