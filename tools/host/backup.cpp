#include "backup.h"

#include <fcntl.h>
#include <unistd.h>

#include "descriptor.h"
#include "driver.h"
#include "in_directory.h"

namespace mergedb::host {

bool commitRunning(const TableFile &file) {
    if (Descriptor(::open(file.backupPath().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)).get() < 0) return false;
    try {
        std::optional<std::string> directory = driverDirectory(file);
        InDirectory here(file.directory(), file.label, !directory);
        Session session;
        Database database(session, DB_SUBTYPE_DELIMITED, directory.value_or(""));
        Table probe(database, driverName(file.backupName, file.label), file.label, DB_SUBTYPE_DELIMITED,
                    Delimiters{}, Access::Read);
        probe.close();
    } catch (const DriverError &error) {
        return error.code() == ERR_OPEN;
    } catch (const Failure &) {
        // Open, but not as text, a name that the driver's code pages lack,
        // or a directory that can't be entered: nobody holds it that the
        // driver can tell.
    }
    return false;
}

std::string backupMeaning(const TableFile &file) {
    if (commitRunning(file)) return "another process is committing it now (it holds " + file.backupName + ")";
    std::string stem = file.name.substr(0, file.name.find('.'));
    return file.backupName + " lies beside it, left by a commit of it (or of another " + stem +
           ".* table) that did not finish; see mergedb recover " + file.label;
}

}  // namespace mergedb::host
