#pragma once

#include <QString>

class SimulatedLines;

/// Saves what the dialog looks like when it is empty, scans, has found recorders and has found none, as
/// dialog-empty.png, dialog-scanning.png, dialog-found.png and dialog-none-found.png in `folder`. Takes some
/// seconds, in event loops of its own, and adds recorders to `lines`, where none are yet. The complaint is
/// empty when it went well.
QString saveDialogPictures(const QString& folder, SimulatedLines& lines);
