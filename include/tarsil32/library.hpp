// The started library. One object per process: from library::start until it and the last file that
// it opened are gone.
//
// The options are those of the library and are set before any file is opened, as it asks for. Files
// are opened through this object: what it knows of them (their mode, how long calls wait) goes with
// them. Programs may call the C functions beside it, on the handles that the objects tell; what
// they do to cursors and positions, the objects don't see.
#pragma once

#include "tarsil32/index_calls.hpp"

namespace tarsil {

class library {
public:
    static result<library> start(const library_options& options = {});

    library(library&&) noexcept = default;
    library& operator=(library&&) noexcept = default;

    static format_version version()
    {
        format_version found = {};
        tsvernum32(0, &found.high, &found.low, 0, 0);
        return found;
    }

    // Whether the file can be opened in the present mode at this moment.
    static bool is_there(const std::string& name) { return tsIsFileThere32(name.c_str()) == 1; }

    // A new data file of fixed length with the layout's fields.
    result<data_file> create(const std::string& name, const layout& fields,
                             const retry_choice& wait = {}) const
    {
        if (!fields.state()) return fields.state();
        return create(name, fields.record_length(), fields.field_table(), wait);
    }
    // record_length may be TS_VARIABLE_LENGTH.
    result<data_file> create(const std::string& name, int32_t record_length,
                             const std::vector<field_entry>& fields = {},
                             const retry_choice& wait = {}) const
    {
        return adopt(name, wait, TS_LOCK_REFUSED, [&] {
            std::vector<field_entry> fresh = fields;
            return tscrdata32(name.c_str(), record_length, static_cast<int32_t>(fresh.size()),
                              fresh.data());
        });
    }

    result<data_file> open(const std::string& name, const retry_choice& wait = {}) const
    {
        return adopt(name, wait, TS_OPEN_DATA_LOCK_FAILED, [&] { return tsopend32(name.c_str()); });
    }

    // Opens a file whose header can't be trusted and makes it anew from the records.
    result<data_file> rebuild(const std::string& name, const retry_choice& wait = {}) const
    {
        std::byte* const room = detail::reserve::room();
        if (room == nullptr) return status(face::no_room, name);
        return adopt(name, wait, TS_LOCK_REFUSED, [&] { return tsrbdbh32(name.c_str(), room); });
    }

    // How many pauses calls have made because another process held a range.
    uint64_t waits() const { return session_ ? session_->waits : 0; }

private:
    explicit library(std::shared_ptr<detail::session> session) : session_(std::move(session)) {}

    static std::weak_ptr<detail::session>& running()
    {
        static std::weak_ptr<detail::session> only;
        return only;
    }

    // The failed opens that are asked again have left no slot taken.
    template <class Call>
    result<data_file> adopt(const std::string& name, const retry_choice& wait, int32_t refused,
                            Call&& call) const
    {
        if (!session_) return status(face::empty_handle);
        const int32_t handle = detail::persist(session_->wait_of(wait), session_->waits, call,
                                               refused);
        if (handle < 0) return status(handle, name);
        auto state = std::make_shared<detail::file_state>();
        state->owner = session_;
        state->handle = handle;
        state->name = name;
        data_file file(state);
        detail::file_counts counts;
        const int32_t code = detail::read_counts(state, wait, counts);
        if (code < 0) return status(code, name);
        state->record_length = counts.record_length;
        const bool possible = counts.record_length > 0 ||
                              counts.record_length == TS_VARIABLE_LENGTH;
        if (!possible) return status(face::bad_layout, name + ": the length of its records");
        return file;
    }

    std::shared_ptr<detail::session> session_;
};

inline result<library> library::start(const library_options& options)
{
    if (!running().expired()) return status(face::already_started);
    int32_t code = tsinit32();
    if (code < 0) return status(code);
    auto session = std::make_shared<detail::session>(options);
    const auto letter = [](bool on) { return on ? 'y' : 'n'; };
    code = tsautoup32(letter(options.write_through));
    if (code < 0) return status(code);
    code = tsspdoub32(options.precision);
    if (code < 0) return status(code);
    tsdelow32(letter(options.reuse_deleted));
    code = tsmuser32(letter(options.multi_user));
    if (code < 0) return status(code);
    running() = session;
    return library(std::move(session));
}

// A text in a normal form for key values: `flags` as tsstrcvt32 has them. It ends at a zero byte.
inline std::string normal_form(std::string_view text, int32_t flags)
{
    std::string copy(text.substr(0, text.find('\0')));
    std::vector<char> room(copy.size() + 1);
    tsstrcvt32(room.data(), copy.c_str(), flags);
    return room.data();
}

} // namespace tarsil
