"""What pages show, held against inspect's JSON and ffprobe; and what they do."""
import pytest
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

KINDS = ["avc", "fields", "hevc", "mpeg2"]


def one(browser, selector):
    return browser.find_element(By.CSS_SELECTOR, selector)


def line(browser):
    return one(browser, "[data-stream]")


def texts(browser, script):
    return browser.execute_script(script)


def set_order(browser, value):
    one(browser, f"input[type=radio][value={value}]").click()
    assert line(browser).get_attribute("data-order") == value


def table(browser):
    """The rows of the table of pictures; opened, and in the present order."""
    browser.execute_script("document.querySelector('details.table').open = true")
    WebDriverWait(browser, 5).until(lambda _: browser.find_elements(By.CSS_SELECTOR, "details.table tbody tr"))
    names = ["n", "packet", "slices", "entry", "size", "pts", "dts", "clock", "structure", "triplets"]
    rows = texts(browser, "return Array.from(document.querySelectorAll('details.table tbody tr'),"
                          " (row) => Array.from(row.children, (cell) => cell.textContent))")
    return [dict(zip(names, row)) for row in rows]


@pytest.mark.parametrize("kind", KINDS)
def test_each_picture_is_a_bar_with_its_size_and_times(browser, shown, kind):
    clip = shown(kind)
    set_order(browser, "coding")
    rows = table(browser)
    assert int(line(browser).get_attribute("data-bars")) == len(clip.packets)
    assert [int(row["packet"]) for row in rows] == list(range(len(clip.packets)))
    assert [row["size"] for row in rows] == [packet["size"] for packet in clip.packets]
    assert [row["pts"] for row in rows] == [str(packet.get("pts", "-")) for packet in clip.packets]
    assert [row["dts"] for row in rows] == [str(packet.get("dts", "-")) for packet in clip.packets]
    # What is shown stands in the order of its times.
    set_order(browser, "presentation")
    times = [int(row["pts"]) for row in table(browser) if row["pts"] != "-"]
    assert times == sorted(times)


@pytest.mark.parametrize("kind", KINDS)
def test_types_are_those_of_the_decoder(browser, shown, kind):
    clip = shown(kind)
    decoded = {str(frame["pts"]): frame["pict_type"] for frame in clip.frames}
    rows = {row["pts"]: row for row in table(browser)}
    assert len(decoded) > 20
    for pts, kind_of in decoded.items():
        letters = set(rows[pts]["slices"].replace("+", " ").split())
        assert kind_of == ("B" if "B" in letters else "P" if "P" in letters else "I"), pts
    marked = {str(frame["pts"]) for frame in clip.frames if frame["key_frame"]}
    assert marked == {pts for pts, row in rows.items() if row["entry"] and pts in decoded}


@pytest.mark.parametrize("kind", ["avc", "fields", "hevc"])
def test_pictures_are_those_of_inspect(browser, shown, kind):
    clip = shown(kind)
    set_order(browser, "coding")
    for row, frame in zip(table(browser), clip.inspected["frames"], strict=True):
        assert int(row["size"]) == frame["size"]
        assert row["slices"] == frame["slice_types"]
        assert row["clock"] == frame.get("timecode", "")
        assert row["triplets"] == str(frame["captions"]["cc_count"] if "captions" in frame else "")


def test_timecodes_are_those_of_the_decoder(browser, shown):
    clip = shown("avc")
    said = {str(frame["pts"]): [data["timecodes"][0]["value"] for data in frame.get("side_data_list", [])
                                if data["side_data_type"] == "SMPTE 12-1 timecode"] for frame in clip.frames}
    shown_clocks = {row["pts"]: row["clock"] for row in table(browser)}
    assert shown_clocks[str(clip.frames[0]["pts"])] == "09:59:59:10"
    assert {pts: clocks[0] for pts, clocks in said.items()} == {pts: shown_clocks[pts] for pts in said}


@pytest.mark.parametrize("kind", ["avc", "hevc"])
def test_a_click_lists_the_units(browser, shown, kind):
    clip = shown(kind)
    set_order(browser, "coding")
    chart = one(browser, "[data-chart=sizes] canvas:last-of-type")
    ActionChains(browser).move_to_element(chart).click().perform()
    panel = one(browser, ".chosen")
    WebDriverWait(browser, 5).until(lambda _: panel.find_elements(By.CSS_SELECTOR, "tbody tr"))
    packet = int(panel.find_element(By.TAG_NAME, "h4").text.split(",")[1].split()[0])
    rows = texts(browser, "return Array.from(document.querySelectorAll('.chosen tbody tr'),"
                          " (row) => Array.from(row.children, (cell) => cell.textContent.replace(/\\u202f/g, '')))")
    units = clip.inspected["frames"][packet]["units"]
    assert [row[:4] for row in rows] == [[str(unit["offset"]), str(unit["nal_unit_type"]), unit["name"], str(unit["size"])]
                                         for unit in units]
    data = clip.path.read_bytes()
    for row in rows:
        assert bytes.fromhex(row[5]) in data


def test_sei_messages_are_read(browser, shown):
    shown("avc")
    one(browser, ".goto").send_keys("0" + Keys.ENTER)
    panel = one(browser, ".chosen")
    WebDriverWait(browser, 5).until(lambda _: "initial_cpb_removal_delay" in panel.text)
    assert "clock 09:59:59:10" in panel.text
    assert "24 triplets" in panel.text
    assert "recovery" not in panel.text


def window(browser):
    element = line(browser)
    return int(element.get_attribute("data-from")), int(element.get_attribute("data-to"))


def test_wheel_drag_and_keys_zoom(browser, shown):
    clip = shown("avc")
    last = len(clip.packets) - 1
    assert window(browser) == (0, last)
    chart = one(browser, "[data-chart=sizes] canvas:last-of-type")
    browser.execute_script("arguments[0].scrollIntoView({block: 'center'})", chart)
    browser.execute_script("""
      const box = arguments[0].getBoundingClientRect();
      arguments[0].dispatchEvent(new WheelEvent('wheel', { deltaY: -100, bubbles: true, cancelable: true,
        clientX: box.x + box.width / 2, clientY: box.y + box.height / 2 }));""", chart)
    by_wheel = window(browser)
    assert by_wheel[0] > 0 and by_wheel[1] < last
    ActionChains(browser).move_to_element_with_offset(chart, -100, 0).click_and_hold().move_by_offset(150, 0).release().perform()
    WebDriverWait(browser, 5).until(lambda _: window(browser)[1] - window(browser)[0] < (by_wheel[1] - by_wheel[0]) / 2)
    by_drag = window(browser)
    assert by_drag[0] >= by_wheel[0] and by_drag[1] <= by_wheel[1]
    assert int(line(browser).get_attribute("data-bars")) <= by_drag[1] - by_drag[0] + 3
    plots = one(browser, ".plots")
    plots.send_keys("0")
    assert window(browser) == (0, last)
    plots.send_keys("+")
    assert window(browser)[1] - window(browser)[0] <= last // 2 + 1
    plots.send_keys("0", Keys.HOME, Keys.ARROW_RIGHT, Keys.ARROW_RIGHT)
    assert "Picture 2:" in one(browser, ".said").text


def test_the_pointer_tells_of_a_picture(browser, shown):
    shown("avc")
    chart = one(browser, "[data-chart=sizes] canvas:last-of-type")
    ActionChains(browser).move_to_element(chart).perform()
    tip = one(browser, ".tip").text
    number = int(tip.split()[1])
    row = table(browser)[number]
    assert f"{row['packet']} as coded" in tip and row["clock"] in tip
    assert tip.splitlines()[1].replace("\u202f", "").startswith(row["slices"])


def test_the_buffer_is_drawn_where_it_is_signalled(browser, shown):
    shown("avc")
    titles = [title.text for title in browser.find_elements(By.CSS_SELECTOR, ".plots h4")]
    assert any("NAL HRD" in title and "300 kbit/s constant" in title and "no underflow" in title for title in titles), titles
    shown("hevc")
    assert not browser.find_elements(By.CSS_SELECTOR, "[data-chart=buffer]")


def test_an_underflow_is_told(browser, shown):
    shown("late")
    titles = [title.text for title in browser.find_elements(By.CSS_SELECTOR, ".plots h4")]
    assert any("underflows (U)" in title for title in titles), titles
    one(browser, ".goto").send_keys("12" + Keys.ENTER)
    panel = one(browser, ".chosen")
    WebDriverWait(browser, 5).until(lambda _: "(IDR)" in panel.text)
    assert "underflow: it is not whole in time" in panel.text
    one(browser, "details.wrong").click()
    assert "picture 12 as coded: underflow" in one(browser, "details.wrong").text


def test_a_jump_of_timecodes_is_told(browser, shown):
    clip = shown("jump")
    jumps = one(browser, "details.jumps")
    assert "Timecode jumps: 1" in jumps.text
    jumps.click()
    middle = len(clip.packets) // 2
    assert f"picture {middle} as coded: 01:00:01:04 \u2192 02:00:00:00" in jumps.text
    jumps.find_element(By.TAG_NAME, "button").click()
    assert f", {middle} in coding order" in one(browser, ".chosen h4").text
    assert "02:00:00:00" in one(browser, ".chosen").text


def test_sets_are_searched_and_compared(browser, shown):
    clip = shown("avc")
    box = one(browser, "[data-sets]")
    names = "return Array.from(document.querySelectorAll('.compare tbody tr'), (row) => Array.from(row.children, (cell) => cell.textContent))"
    sps = clip.inspected["parameter_sets"]["sps"][0]["elements"]
    rows = {row[0]: row[1] for row in texts(browser, names)}
    assert set(rows) == set(sps)
    assert rows["num_units_in_tick"].split()[0] == str(sps["num_units_in_tick"])
    box.find_element(By.CSS_SELECTOR, "input[type=search]").send_keys("hrd_param")
    found = [row[0] for row in texts(browser, names)]
    assert found == [name for name in sps if "hrd_param" in name]
    box.find_element(By.CSS_SELECTOR, "input[type=search]").clear()
    selects = box.find_elements(By.TAG_NAME, "select")
    pps = next(option for option in selects[1].find_elements(By.TAG_NAME, "option") if option.text.startswith("PPS"))
    Select(selects[1]).select_by_visible_text(pps.text)
    rows = texts(browser, names)
    signs = {row[0]: row[2] for row in rows}
    assert signs["forbidden_zero_bit"] == "" and signs["nal_unit_type"] == "\u2260"
    assert signs["pic_parameter_set_id"] == "\u2260"


def test_captions_and_texts_are_text(browser, shown):
    """The hostile clip: its tags, its captions and its name are markup."""
    shown("avc")
    captions = one(browser, "#captions").text
    assert "<img src=x onerror=1>" in captions and '"X" </script>' in captions
    assert '</script><script>document.title="owned"</script>' in one(browser, "#file").get_attribute("textContent")
    assert one(browser, "h1").text == "a 'b' \"c\" <i>&amp;.mp4"
    assert texts(browser, "return document.images.length + document.querySelectorAll('h1 i').length") == 0
    # The policy holds even for a script that is put in by force.
    texts(browser, "const s = document.createElement('script'); s.textContent = 'document.title = \"owned\"';"
                   "document.body.append(s)")
    refused = browser.get_log("browser")
    assert len(refused) == 1 and "Content Security Policy" in refused[0]["message"]


def test_findings_lead_to_their_pictures(browser, shown):
    shown("avc")
    section = one(browser, "#findings")
    assert section.find_elements(By.CSS_SELECTOR, "li, .good")
    for link in section.find_elements(By.CSS_SELECTOR, "a")[:1]:
        packet = int(link.text.rsplit(" ", 4)[-4])
        link.click()
        assert f", {packet} in coding order" in one(browser, ".chosen h4").text
    shown("mpeg2")
    assert "Nothing found" in one(browser, "#findings").text


def test_pages_are_small_and_whole(clips):
    text = clips("avc").page.read_text(encoding="utf-8")
    assert len(text.encode()) < 400_000
    assert "default-src 'none'" in text and "http-equiv" in text
    assert "Permission is hereby granted" in text  # the licence of the charts
    assert "sourceMappingURL" not in text
    assert text.count("<script") == text.count("</script>") == 3
