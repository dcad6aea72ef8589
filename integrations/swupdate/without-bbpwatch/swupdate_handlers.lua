-- SPDX-License-Identifier: Apache-2.0
-- The short form, for a target without bbpwatch: no percentages, but as safe. The updater leads a
-- session of its own and ignores what ends others; the lock keeps a second one away (status 75).

local function bbpflash(image)
    local file = swupdate.tmpdir() .. "bbpflash-" .. image.filename
    if image:copy2file(file) ~= 0 then
        return 1
    end
    local is_updated = os.execute("trap '' PIPE HUP INT TERM; exec setsid --wait flock -n -E 75 "
        .. "/run/lock/bbpflash.lock bbpflash -s '" .. file:gsub("'", "'\\''") .. "'")
    os.remove(file)
    return is_updated and 0 or 1
end

swupdate.register_handler("bbpflash", bbpflash, swupdate.HANDLER_MASK.IMAGE_HANDLER)
