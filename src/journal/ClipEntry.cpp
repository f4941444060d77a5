#include "journal/ClipEntry.h"

#include "journal/ReferenceDate.h"

double ClipEntry::date() const
{
    if (meta.date) return *meta.date;
    if (parsedDate) return *parsedDate;
    return ReferenceDate::now();
}
