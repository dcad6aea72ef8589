-- SPDX-License-Identifier: Apache-2.0
-- Images of type "bbpflash": bbpwatch updates the head unit's baseband processor, SWUpdate shows
-- how far it is and what went wrong.

local function bbpflash(image)
    local file = swupdate.tmpdir() .. "bbpflash-" .. image.filename
    if image:copy2file(file) ~= 0 then
        swupdate.error("bbpflash: no room for the image " .. file)
        return 1
    end
    local quoted = "'" .. file:gsub("'", "'\\''") .. "'"
    local shown = 0
    local watch = io.popen("exec bbpwatch --json " .. quoted .. " 2>&1")
    for line in watch:lines() do
        local event = line:match('^{.*"event":"(%l+)"')
        local done = line:match('"done":([%d.]+)')
        local text = line:match('"text":"(.-)"[,}]')
        if done and 100 * tonumber(done) >= shown + 1 then
            shown = math.floor(100 * tonumber(done))
            swupdate.progress_update(shown)
        end
        if event == "problem" or event == "stall" or event == "end" or not event then
            swupdate.info("bbpflash: " .. (text or line))
        end
    end
    local is_updated, _, status = watch:close()
    os.remove(file)
    if not is_updated then
        swupdate.error("bbpflash: the update failed, bbpwatch's status is " .. status)
    end
    return is_updated and 0 or 1
end

swupdate.register_handler("bbpflash", bbpflash, swupdate.HANDLER_MASK.IMAGE_HANDLER)
